// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/Settings.h"

#include <array>
#include <cerrno>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

constexpr std::string_view groupHeader = "[Desktop]";
constexpr std::size_t maximumBytes = std::size_t{1} << 20;

struct Key {
  std::string_view name;
  bool Settings::Values::*value;
};
constexpr std::array keys{
    Key{"KeepMetadata", &Settings::Values::keepMetadata},
    Key{"KeepTimes", &Settings::Values::keepTimes},
    Key{"NotifyAtEnd", &Settings::Values::notifyAtEnd},
    Key{"CompressAtOnce", &Settings::Values::compressAtOnce},
};

/// With their ends.
std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const auto size = end == std::string_view::npos ? text.size() : end + 1;
    lines.emplace_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return lines;
}

bool isHeader(std::string_view line) {
  return line.starts_with('[') && line.ends_with(']');
}

/// The key that a line of our group sets.
const Key* keyOf(std::string_view line) {
  const auto name = trimmed(line.substr(0, line.find('=')));
  for (const Key& key : keys) {
    if (line.find('=') != std::string_view::npos && key.name == name) return &key;
  }
  return nullptr;
}

Settings::Values parse(std::string_view text) {
  Settings::Values values;
  bool inGroup = false;
  for (const std::string& whole : linesOf(text)) {
    const auto line = trimmed(whole);
    if (isHeader(line)) {
      inGroup = line == groupHeader;
    } else if (const Key* key = inGroup ? keyOf(line) : nullptr) {
      const auto value = trimmed(line.substr(line.find('=') + 1));
      if (value == "true" || value == "false") values.*key->value = value == "true";
    }
  }
  return values;
}

std::string entry(const Key& key, const Settings::Values& values) {
  return std::string(key.name) + (values.*key.value ? "=true\n" : "=false\n");
}

/// The text with these values; every other line is what it was.
std::string withValues(std::string_view text, const Settings::Values& values) {
  std::string result;
  std::string ours;
  for (const Key& key : keys) ours += entry(key, values);
  bool inGroup = false, written = false;
  for (const std::string& whole : linesOf(text)) {
    const auto line = trimmed(whole);
    if (isHeader(line)) inGroup = line == groupHeader;
    if (inGroup && keyOf(line)) continue;
    result += whole;
    if (!inGroup || line != groupHeader || written) continue;
    if (!whole.ends_with('\n')) result += '\n';
    result += ours;
    written = true;
  }
  if (written) return result;
  if (!result.empty() && !result.ends_with('\n')) result += '\n';
  if (!result.empty()) result += '\n';
  return result + std::string(groupHeader) + "\n" + ours;
}

/// Empty where there is none. Throws `FileError`, also for what is no plain file or too large to be one of
/// ours: it must not be written then.
std::string textOf(const URL& file) {
  if (!files::exists(file)) return {};
  if (!files::resourceValues(file).isRegularFile) throw FileError("读取", file.path(), EINVAL);
  std::string text = files::read(file, maximumBytes + 1);
  if (text.size() > maximumBytes) throw FileError("读取", file.path(), EFBIG);
  return text;
}

/// Empty, or what went wrong. The file holds a secret: a new one is the user's alone.
QString write(const URL& name, const Settings::Values& values) {
  try {
    const URL file = name.resolvingSymlinks();
    const std::string before = textOf(file);
    const std::string after = withValues(before, values);
    if (after == before) return {};
    files::createDirectories(file.deletingLastPathComponent(), 0700);
    files::writeAtomically(file, after, files::Durability::flushed, 0600);
    return {};
  } catch (const std::exception&) {
    return words(describedError(std::current_exception()));
  }
}

}  // namespace

Settings::Settings(URL file, QObject* parent) : QObject(parent), file_(std::move(file)) {
  pool_.setMaxThreadCount(1);  // the last values are written last
  try {
    values_ = parse(textOf(file_.resolvingSymlinks()));
  } catch (const FileError&) {  // the defaults hold; writing tells what is wrong
  }
}

Settings::~Settings() = default;

void Settings::set(const Values& values) {
  if (values == values_) return;
  values_ = values;
  Q_EMIT changed();
  inBackground(
      this, [file = file_, values] { return write(file, values); },
      [this](const QString& problem) {
        if (!problem.isEmpty()) Q_EMIT saveFailed(problem);
      },
      &pool_);
}

}  // namespace tidewell::desktop
