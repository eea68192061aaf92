// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/platform/URL.h"

namespace tidewell::test {

/// The items of a HEIF file taken apart, to be put together again as cameras do: with turns, crops, colours,
/// grids, hidden tiles and several images. Pictures come from heif-enc; nothing here is checked.
struct HEIFFile {
  struct Item {
    std::uint32_t id = 0;
    std::string type;
    bool hidden = false;
    std::vector<std::string> properties;  ///< whole boxes
    std::string data;
  };
  struct Reference {
    std::string type;
    std::uint32_t from = 0;
    std::vector<std::uint32_t> to;
  };

  std::vector<std::string> brands = {"heic", "mif1", "heic"};  ///< the major brand first
  std::uint32_t primary = 1;
  std::vector<Item> items;
  std::vector<Reference> references;
  std::uint32_t repeats = 0;  ///< how often 255 more associations give the primary image the last property

  static HEIFFile read(const URL& url);
  std::string bytes() const;
  void write(const URL& url) const;

  Item& item(std::uint32_t id);
  HEIFFile& with(std::string property) {
    item(primary).properties.push_back(std::move(property));
    return *this;
  }
  /// Without the properties of this type.
  HEIFFile& without(std::string_view type);
};

/// `value` big-endian in `bytes` bytes.
std::string number(std::uint64_t value, int bytes);
std::string box(std::string_view type, const std::string& payload);
inline std::string irot(int quartersCounterClockwise) {
  return box("irot", number(static_cast<std::uint64_t>(quartersCounterClockwise), 1));
}
inline std::string imir(int axis) {
  return box("imir", number(static_cast<std::uint64_t>(axis), 1));
}
std::string ispe(std::uint32_t width, std::uint32_t height);
/// The part of `width` x `height` pixels whose centre lies `right` and `down` half pixels from the image's.
std::string clap(std::uint32_t width, std::uint32_t height, std::int32_t right, std::int32_t down);
std::string nclx(int primaries, int transfer, int matrix);
inline std::string icc(const std::string& profile) {
  return box("colr", "prof" + profile);
}

/// A grid of equal tiles, row by row, as phones write it: tiles and grid in one file, the tiles hidden. All
/// tiles have the properties of their own files.
HEIFFile grid(const std::vector<HEIFFile>& tiles, int rows, int columns, std::uint32_t width,
              std::uint32_t height);

}  // namespace tidewell::test
