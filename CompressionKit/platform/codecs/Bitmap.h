#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CompressionKit/platform/codecs/ImageSource.h"

namespace tidewell {

/// A decoded image in memory: rows from top to bottom, width × 4 bytes each, premultiplied R, G, B, A.
struct Bitmap {
  std::int64_t width = 0;
  std::int64_t height = 0;
  std::vector<std::uint8_t> pixels;
  bool hasAlpha = false;
  ColorTag color;

  std::span<std::uint8_t> row(std::int64_t y) {
    return {pixels.data() + y * width * 4, static_cast<std::size_t>(width) * 4};
  }
  std::span<const std::uint8_t> row(std::int64_t y) const {
    return {pixels.data() + y * width * 4, static_cast<std::size_t>(width) * 4};
  }
};

/// Decoded views of one image of a source. All work row by row: memory is that of the result plus a few
/// rows (plus what the format needs). They throw `ImageDecodeError`.
namespace views {

/// The image reduced so that its longer side is at most `maximumPixelSize` (area average, never enlarged).
/// `applyOrientation` turns it upright.
Bitmap thumbnail(ImageSource& source, std::size_t index, std::int64_t maximumPixelSize,
                 bool applyOrientation);

/// A rectangle at full resolution, top-left origin, stored orientation. The rectangle must lie inside.
Bitmap crop(ImageSource& source, std::size_t index, std::int64_t x, std::int64_t y, std::int64_t width,
            std::int64_t height);

/// `bitmap` turned upright from a stored orientation of 1 to 8.
Bitmap upright(Bitmap bitmap, int orientation);

}  // namespace views
}  // namespace tidewell
