// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/TIFFDirectories.h"

#include <iterator>

namespace tidewell {
namespace {

constexpr std::uint32_t shortType = 3, longType = 4;

}  // namespace

std::uint64_t TIFFDirectories::Entry::bytes() const {
  constexpr unsigned sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
  return std::uint64_t{count} * (type < std::size(sizes) ? sizes[type] : 0);
}

TIFFDirectories::Directory TIFFDirectories::after(Directory directory) const {
  const auto count = directory ? number(*directory, 2) : std::nullopt;
  if (!count) return std::nullopt;
  const auto next = number(*directory + 2 + entryBytes * *count, 4);
  return next == 0U ? std::nullopt : next;
}

std::optional<TIFFDirectories::Entry> TIFFDirectories::entry(Directory directory, std::uint32_t tag) const {
  std::optional<Entry> found;
  forEachEntry(directory, [&](const Entry& entry) {
    if (entry.tag == tag && !found) found = entry;
  });
  return found;
}

std::optional<std::uint32_t> TIFFDirectories::integer(Directory directory, std::uint32_t tag) const {
  const auto found = entry(directory, tag);
  if (!found || found->count == 0 || (found->type != shortType && found->type != longType))
    return std::nullopt;
  return number(found->value(), found->type == shortType ? 2 : 4);
}

std::string_view TIFFDirectories::bytes(std::size_t position, std::size_t size) const {
  return position > tiff_.size() ? std::string_view() : tiff_.substr(position, size);
}

std::optional<std::uint32_t> TIFFDirectories::number(std::size_t position, std::size_t size) const {
  if (position > tiff_.size() || tiff_.size() - position < size) return std::nullopt;
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) {
    value = value << 8 | static_cast<unsigned char>(tiff_[position + (little_ ? size - 1 - i : i)]);
  }
  return value;
}

}  // namespace tidewell
