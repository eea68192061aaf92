#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// What the items of a HEIF file say (ISO/IEC 23008-12) that libheif keeps to itself. `meta` is always the
/// payload of the file's "meta" box, behind version and flags.
namespace tidewell::heif {

/// The Exif orientation (1 to 8) that says the same as the turns and mirrorings ("irot", "imir") of one item
/// together, in their order.
int orientation(std::string_view meta, std::uint32_t itemID);

/// Refuses a file that could make the decoders take far more memory than its image needs: one of whose grids
/// or overlays is larger than `maximumPixels` or has more than `maximumTiles` tiles, or one of whose HEVC
/// streams announces pictures larger than `maximumCodedPixels`, whatever the file declares elsewhere.
/// `readAt` gives bytes of the file, or fewer at its end. Throws `ImageDecodeError`.
struct Limits {
  std::uint64_t maximumPixels;
  std::uint64_t maximumCodedPixels;
  std::uint64_t maximumTiles = 1024;
};
using ReadAt = std::function<std::string(std::uint64_t offset, std::size_t bytes)>;
void checkSizes(std::string_view meta, const ReadAt& readAt, const Limits& limits);

}  // namespace tidewell::heif
