// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/Images.h"

#include <algorithm>
#include <cstdlib>

namespace tidewell::desktop {

QImage imageOf(const Bitmap& bitmap) {
  const QImage wrapped(bitmap.pixels.data(), static_cast<int>(bitmap.width), static_cast<int>(bitmap.height),
                       static_cast<qsizetype>(bitmap.width * 4), QImage::Format_RGBA8888_Premultiplied);
  return wrapped.convertToFormat(bitmap.hasAlpha ? QImage::Format_ARGB32_Premultiplied
                                                 : QImage::Format_RGB32);
}

QImage differenceOf(const Bitmap& original, const Bitmap& result, int amplification) {
  QImage image(static_cast<int>(original.width), static_cast<int>(original.height), QImage::Format_RGB32);
  for (std::int64_t y = 0; y < original.height; ++y) {
    const std::uint8_t *one = original.row(y).data(), *other = result.row(y).data();
    auto* to = reinterpret_cast<QRgb*>(image.scanLine(static_cast<int>(y)));
    for (std::int64_t x = 0; x < original.width; ++x, one += 4, other += 4) {
      const auto channel = [&](int c) {
        const int difference = std::max(std::abs(one[c] - other[c]), std::abs(one[3] - other[3]));
        return std::min(difference * amplification, 255);
      };
      *to++ = qRgb(channel(0), channel(1), channel(2));
    }
  }
  return image;
}

}  // namespace tidewell::desktop
