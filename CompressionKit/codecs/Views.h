// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

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

/// What a large image is judged by.
struct Pair {
  Bitmap overview;  ///< the whole, reduced
  Bitmap detail;    ///< its centre square at full resolution
};

/// The image reduced as by `thumbnail`, and the square in its middle, of `detailSide` or as far as the image
/// goes; both in stored orientation. Proves the image as `ImageSource::verify` does, and throws as that.
Pair overviewAndDetail(ImageSource& source, std::size_t index, std::int64_t overviewSide,
                       std::int64_t detailSide);

/// `bitmap` turned upright from a stored orientation of 1 to 8.
Bitmap upright(Bitmap bitmap, int orientation);

}  // namespace tidewell::views
