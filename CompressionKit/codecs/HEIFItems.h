// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/HEVCUnits.h"

/// What the items of a HEIF file say (ISO/IEC 23008-12) that libheif keeps to itself. `meta` is always the
/// payload of the file's "meta" box, behind version and flags.
namespace tidewell::heif {

/// Calls `use` for each property of each item; those of one item come in the order in which they apply.
void forEachProperty(std::string_view meta,
                     const std::function<void(std::uint32_t item, const Box& property)>& use);

/// The Exif orientation (1 to 8) that says the same as the turns and mirrorings ("irot", "imir") of one item
/// together, in their order.
int orientation(std::string_view meta, std::uint32_t itemID);

/// Calls `use` for each unit of a "hvcC" property (ISO/IEC 14496-15, 8.3.3.1).
void forEachUnit(std::string_view configuration, const std::function<void(std::string_view unit)>& use);

/// What the HEVC stream of an item says of its colours, if it has one that does.
std::optional<hevc::Sequence::Colors> streamColors(std::string_view meta, std::uint32_t itemID);

/// Throws `ImageDecodeError`.
[[noreturn]] void refuse(const std::string& reason);

/// Bytes of the file; none when they reach beyond its end.
using ReadAt = std::function<std::string(std::uint64_t offset, std::size_t bytes)>;

/// The data of one item, wherever its pieces lie.
class ItemData {
 public:
  struct Extent {
    std::uint64_t offset;
    std::uint64_t length;
  };
  ItemData(std::vector<Extent> extents, bool inMeta, std::string_view idat, const ReadAt& readAt)
      : extents_(std::move(extents)), inMeta_(inMeta), idat_(idat), readAt_(readAt) {}

  /// Fewer at the end.
  std::string read(std::uint64_t position, std::size_t bytes) const;

 private:
  std::vector<Extent> extents_;
  bool inMeta_;
  std::string_view idat_;
  const ReadAt& readAt_;
};

/// Where the items' data lies ("iloc"); an item that is named twice is here twice. `meta` and `readAt` must
/// outlive it. Refuses what libheif would not read: more than `maximumItems`, or data in many pieces.
constexpr std::size_t maximumItems = 20000;
std::multimap<std::uint32_t, ItemData> itemLocations(std::string_view meta, const ReadAt& readAt);

}  // namespace tidewell::heif
