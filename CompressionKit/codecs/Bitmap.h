// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CompressionKit/codecs/ImageProperties.h"

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

}  // namespace tidewell
