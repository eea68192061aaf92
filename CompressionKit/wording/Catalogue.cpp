// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Catalogue.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

constexpr std::uint32_t magic = 0x950412de;
constexpr std::size_t maximumBytes = std::size_t{1} << 22;

/// A file's words are those of the machine that made it, and so of this one.
std::optional<std::uint32_t> wordAt(std::string_view data, std::size_t offset) {
  std::uint32_t word = 0;
  if (offset > data.size() || data.size() - offset < sizeof word) return std::nullopt;
  std::memcpy(&word, data.data() + offset, sizeof word);
  return word;
}

/// The text in a row of a table: up to the first NUL, which is the singular or the first form.
std::optional<std::string> textAt(std::string_view data, std::size_t row) {
  const auto length = wordAt(data, row);
  const auto offset = wordAt(data, row + 4);
  if (!length || !offset || *offset > data.size() || data.size() - *offset < *length) return std::nullopt;
  const std::string_view text = data.substr(*offset, *length);
  return std::string(text.substr(0, text.find('\0')));
}

}  // namespace

std::optional<Catalogue> Catalogue::read(const URL& file) {
  std::string data;
  try {
    data = files::read(file, maximumBytes);
  } catch (const FileError&) {
    return std::nullopt;
  }
  const auto count = wordAt(data, 8);
  const auto originals = wordAt(data, 12);
  const auto translations = wordAt(data, 16);
  if (wordAt(data, 0) != magic || !count || !originals || !translations) return std::nullopt;
  Catalogue catalogue;
  for (std::size_t i = 0; i < *count; ++i) {
    auto original = textAt(data, *originals + 8 * i);
    auto translation = textAt(data, *translations + 8 * i);
    if (!original || !translation) return std::nullopt;
    catalogue.texts_.emplace(std::move(*original), std::move(*translation));
  }
  return catalogue;
}

const char* Catalogue::text(const std::string& english) const {
  const auto found = texts_.find(english);
  return found == texts_.end() ? nullptr : found->second.c_str();
}

}  // namespace tidewell
