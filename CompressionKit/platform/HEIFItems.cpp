#include "CompressionKit/platform/HEIFItems.h"

#include <algorithm>
#include <array>
#include <vector>

#include "CompressionKit/platform/HEIFBoxes.h"

namespace tidewell::heif {
namespace {

/// The properties of an item in the order in which they apply.
std::vector<Box> itemProperties(std::string_view meta, std::uint32_t itemID) {
  const auto iprp = payloadOf("iprp", meta);
  const auto ipco = iprp ? payloadOf("ipco", *iprp) : std::nullopt;
  if (!ipco) return {};
  std::vector<Box> all;
  for (Bytes bytes(*ipco); const auto box = nextBox(bytes);) all.push_back(*box);

  std::vector<Box> properties;
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
        if (id == itemID && index >= 1 && index <= all.size()) properties.push_back(all[index - 1]);
      }
    }
  }
  return properties;
}

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

int orientation(std::string_view meta, std::uint32_t itemID) {
  Turn turn = exifTurns[0];
  for (const Box& property : itemProperties(meta, itemID)) {
    Bytes bytes(property.payload);
    if (property.type == "irot") {
      for (auto quarters = bytes.u8() & 3; quarters > 0; --quarters)
        turn = quarterCounterClockwise.after(turn);
    } else if (property.type == "imir") {
      turn = ((bytes.u8() & 1) != 0 ? mirroredLeftToRight : mirroredTopToBottom).after(turn);
    }
  }
  return static_cast<int>(std::find(exifTurns.begin(), exifTurns.end(), turn) - exifTurns.begin()) + 1;
}

}  // namespace tidewell::heif
