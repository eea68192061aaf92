// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <span>

namespace tidewell {

/// Multiplies the colours of R, G, B, A pixels by their alpha, rounded to nearest.
inline void premultiply(std::span<std::uint8_t> pixels) {
  for (std::size_t i = 0; i + 3 < pixels.size(); i += 4) {
    const unsigned alpha = pixels[i + 3];
    if (alpha == 255) continue;
    for (std::size_t c = 0; c < 3; ++c) {
      // Exact division by 255 for products of two bytes.
      const unsigned product = pixels[i + c] * alpha + 128;
      pixels[i + c] = static_cast<std::uint8_t>((product + (product >> 8)) >> 8);
    }
  }
}

/// One colour value divided by its alpha again.
inline std::uint8_t unpremultiplied(unsigned value, unsigned alpha) {
  if (alpha == 255) return static_cast<std::uint8_t>(value);
  if (alpha == 0) return 0;
  const unsigned result = (value * 255 + alpha / 2) / alpha;
  return static_cast<std::uint8_t>(result < 255 ? result : 255);
}

/// Samples of 8 bits in 16.
inline void widen(std::span<const std::uint8_t> from, std::span<std::uint16_t> to) {
  for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<std::uint16_t>(from[i] * 257);
}

}  // namespace tidewell
