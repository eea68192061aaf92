// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tidewell {

/// The directories of a TIFF structure, as Exif has them. Whatever runs past the end counts as absent.
class TIFFDirectories {
 public:
  static constexpr std::size_t entryBytes = 12;
  struct Entry {
    std::size_t position;  ///< of its `entryBytes`
    std::uint32_t tag, type, count;

    /// Where the four bytes lie that hold the value, or say where it is.
    std::size_t value() const { return position + 8; }
    std::uint64_t bytes() const;  ///< of the value
  };
  using Directory = std::optional<std::uint32_t>;  ///< where it begins

  explicit TIFFDirectories(std::string_view tiff) : tiff_(tiff), little_(tiff.starts_with("II")) {}

  bool isLittleEndian() const { return little_; }
  bool isSound() const { return (little_ || tiff_.starts_with("MM")) && number(2, 2) == 42U; }
  Directory first() const { return number(4, 4); }
  /// The directory that is chained to this one.
  Directory after(Directory directory) const;

  template <typename Visit>
  void forEachEntry(Directory directory, Visit visit) const {
    const auto count = directory ? number(*directory, 2) : std::nullopt;
    for (std::size_t i = 0; count && i < *count; ++i) {
      const std::size_t position = *directory + 2 + entryBytes * i;
      const auto tag = number(position, 2), type = number(position + 2, 2), values = number(position + 4, 4);
      if (!number(position + 8, 4)) break;  // the directory runs past the end
      visit(Entry{position, *tag, *type, *values});
    }
  }
  std::optional<Entry> entry(Directory directory, std::uint32_t tag) const;
  /// Of a SHORT or LONG with this tag.
  std::optional<std::uint32_t> integer(Directory directory, std::uint32_t tag) const;
  /// Where the value of an entry lies that has more than four bytes.
  std::uint32_t place(const Entry& entry) const { return number(entry.value(), 4).value_or(0); }
  std::string_view bytes(std::size_t position, std::size_t size) const;

 private:
  std::optional<std::uint32_t> number(std::size_t position, std::size_t size) const;

  std::string_view tiff_;
  bool little_;
};

}  // namespace tidewell
