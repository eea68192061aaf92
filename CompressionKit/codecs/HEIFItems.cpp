// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEIFItems.h"

#include <algorithm>
#include <array>
#include <set>
#include <vector>

#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell::heif {
namespace {

constexpr std::size_t maximumExtents = 32;  // of one item; libheif reads no more

/// A turn or mirroring as a matrix on pixel positions, x to the right and y down.
struct Turn {
  int xx, xy, yx, yy;
  Turn after(const Turn& first) const {
    return {xx * first.xx + xy * first.yx, xx * first.xy + xy * first.yy, yx * first.xx + yy * first.yx,
            yx * first.xy + yy * first.yy};
  }
  bool operator==(const Turn&) const = default;
};

/// What turns the stored image of each Exif orientation upright, from 1 to 8.
constexpr std::array<Turn, 8> exifTurns = {{{1, 0, 0, 1},
                                            {-1, 0, 0, 1},
                                            {-1, 0, 0, -1},
                                            {1, 0, 0, -1},
                                            {0, 1, 1, 0},
                                            {0, -1, 1, 0},
                                            {0, -1, -1, 0},
                                            {0, 1, -1, 0}}};
constexpr Turn quarterCounterClockwise = exifTurns[7];
constexpr Turn mirroredTopToBottom = exifTurns[3];
constexpr Turn mirroredLeftToRight = exifTurns[1];

}  // namespace

void forEachProperty(std::string_view meta, const std::function<void(std::uint32_t, const Box&)>& use) {
  const auto iprp = payloadOf("iprp", meta);
  const auto ipco = iprp ? payloadOf("ipco", *iprp) : std::nullopt;
  if (!ipco) return;
  std::vector<Box> all;
  for (Bytes bytes(*ipco); const auto box = nextBox(bytes);) all.push_back(*box);

  for (Bytes boxes(*iprp); const auto box = nextBox(boxes);) {
    if (box->type != "ipma") continue;
    Bytes bytes(box->payload);
    const auto [version, flags] = fullBox(bytes);
    const std::size_t indexBytes = (flags & 1) != 0 ? 2 : 1;
    const std::uint64_t indexMask = indexBytes == 2 ? 0x7fff : 0x7f;  // above it: "essential"
    std::uint64_t entries = bytes.u32();
    for (; entries > 0 && bytes.good() && !bytes.atEnd(); --entries) {
      const std::uint32_t id = version == 0 ? bytes.u16() : bytes.u32();
      for (auto associations = bytes.u8(); associations > 0 && bytes.good(); --associations) {
        const std::uint64_t index = bytes.number(indexBytes) & indexMask;
        if (index >= 1 && index <= all.size()) use(id, all[index - 1]);
      }
    }
  }
}

int orientation(std::string_view meta, std::uint32_t itemID) {
  Turn turn = exifTurns[0];
  forEachProperty(meta, [&](std::uint32_t item, const Box& property) {
    if (item != itemID) return;
    Bytes bytes(property.payload);
    if (property.type == "irot") {
      for (auto quarters = bytes.u8() & 3; quarters > 0; --quarters)
        turn = quarterCounterClockwise.after(turn);
    } else if (property.type == "imir") {
      turn = ((bytes.u8() & 1) != 0 ? mirroredLeftToRight : mirroredTopToBottom).after(turn);
    }
  });
  return static_cast<int>(std::find(exifTurns.begin(), exifTurns.end(), turn) - exifTurns.begin()) + 1;
}

void forEachUnit(std::string_view configuration, const std::function<void(std::string_view)>& use) {
  Bytes bytes(configuration);
  bytes.take(22);
  for (auto arrays = bytes.u8(); arrays > 0 && bytes.good(); --arrays) {
    bytes.take(1);
    for (auto units = bytes.u16(); units > 0 && bytes.good(); --units) use(bytes.take(bytes.u16()));
  }
}

namespace {

std::optional<hevc::Sequence::Colors> colorsOf(std::string_view configuration) {
  std::optional<hevc::Sequence::Colors> colors;
  forEachUnit(configuration, [&](std::string_view data) {
    const auto unit = hevc::unitAt(data);
    if (!unit || unit->type != hevc::sequenceParameterSet) return;
    if (const auto sequence = hevc::sequence(data)) colors = sequence->colors;
  });
  return colors;
}

}  // namespace

std::optional<hevc::Sequence::Colors> streamColors(std::string_view meta, std::uint32_t itemID) {
  std::set<const char*> seen;  // an image may name one box of many units very often
  std::optional<hevc::Sequence::Colors> colors;
  forEachProperty(meta, [&](std::uint32_t item, const Box& property) {
    if (item != itemID || property.type != "hvcC" || !seen.insert(property.payload.data()).second) return;
    if (const auto found = colorsOf(property.payload)) colors = found;
  });
  return colors;
}

void refuse(const std::string& reason) {
  throw ImageDecodeError("HEIF limits: " + reason);
}

std::string ItemData::read(std::uint64_t position, std::size_t bytes) const {
  std::string data;
  for (const auto& [offset, length] : extents_) {
    if (position >= length) {
      position -= length;
      continue;
    }
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes - data.size(), length - position));
    const std::uint64_t at = offset + position;
    if (inMeta_) {
      if (at < idat_.size()) data += idat_.substr(at, wanted);
    } else {
      data += readAt_(at, wanted);
    }
    position = 0;
    if (data.size() >= bytes) break;
  }
  return data;
}

std::multimap<std::uint32_t, ItemData> itemLocations(std::string_view meta, const ReadAt& readAt) {
  std::multimap<std::uint32_t, ItemData> items;
  Bytes bytes(payloadOf("iloc", meta).value_or(""));
  const std::string_view idat = payloadOf("idat", meta).value_or("");
  const auto version = fullBox(bytes).version;
  const auto sizes = bytes.u16();
  const auto size = [&](unsigned shift) { return sizes >> shift & 15U; };
  std::uint64_t count = version < 2 ? bytes.u16() : bytes.u32();
  if (count > maximumItems) refuse("too many items");
  for (; count > 0 && bytes.good(); --count) {
    const std::uint32_t id = version < 2 ? bytes.u16() : bytes.u32();
    const std::uint32_t method = version == 0 ? 0 : bytes.u16() & 15U;
    bytes.take(2);  // data reference
    const std::uint64_t base = bytes.number(size(4));
    auto number = bytes.u16();
    if (number > maximumExtents) refuse("data in too many pieces");  // which may be of no bytes at all
    std::vector<ItemData::Extent> extents;
    for (; number > 0 && bytes.good(); --number) {
      if (version > 0) bytes.take(size(0));
      const std::uint64_t offset = base + bytes.number(size(12));
      extents.push_back({offset, bytes.number(size(8))});
    }
    if (method > 1) refuse("data of an item inside another");
    items.emplace(id, ItemData(std::move(extents), method == 1, idat, readAt));
  }
  return items;
}

}  // namespace tidewell::heif
