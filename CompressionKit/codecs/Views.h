#pragma once

#include <cstdint>

#include "CompressionKit/codecs/Bitmap.h"
#include "CompressionKit/codecs/ImageSource.h"

/// Decoded views of one image of a source. All work row by row: memory is that of the result plus a few
/// rows (plus what the format needs). They throw `ImageDecodeError`.
namespace tidewell::views {

/// The image reduced so that its longer side is at most `maximumPixelSize` (area average, never enlarged).
/// `applyOrientation` turns it upright.
Bitmap thumbnail(ImageSource& source, std::size_t index, std::int64_t maximumPixelSize,
                 bool applyOrientation);

/// A rectangle at full resolution, top-left origin, stored orientation. The rectangle must lie inside.
Bitmap crop(ImageSource& source, std::size_t index, std::int64_t x, std::int64_t y, std::int64_t width,
            std::int64_t height);

/// `bitmap` turned upright from a stored orientation of 1 to 8.
Bitmap upright(Bitmap bitmap, int orientation);

}  // namespace tidewell::views
