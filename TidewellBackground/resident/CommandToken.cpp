// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/CommandToken.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <string_view>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"

namespace tidewell {
namespace {

constexpr std::size_t longestFile = std::size_t{64} << 10;

/// The last value of a key within a group, as every reader of such files takes it.
std::string valueInKeyFile(std::string_view text, std::string_view group, std::string_view key) {
  std::string value;
  bool inGroup = false;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const auto line = trimmed(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (line.starts_with('[') && line.ends_with(']')) {
      inGroup = line.substr(1, line.size() - 2) == group;
    } else if (const auto equals = line.find('=');
               inGroup && equals != std::string_view::npos && trimmed(line.substr(0, equals)) == key) {
      value = trimmed(line.substr(equals + 1));
    }
  }
  return value;
}

}  // namespace

std::string CommandToken::commandToken() {
  // Non-blocking, so that a pipe of that name does not stop the main thread.
  const Descriptor file(::open(file_.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
      (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return {};
  }
  std::string text(longestFile, '\0');
  try {
    text.resize(files::readFully(file.get(), text.data(), text.size(), file_));
  } catch (const std::exception&) {
    return {};
  }
  return tokenIn(text);
}

std::string CommandToken::tokenIn(std::string_view text) {
  return valueInKeyFile(text, "Tidewell", "TidewellCommandToken");
}

}  // namespace tidewell
