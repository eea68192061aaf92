// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <libheif/heif.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "CompressionKit/codecs/HEICColor.h"
#include "CompressionKit/codecs/StandardRange.h"

/// A decoded HEIF image in the decoder's memory, and its rows in the forms that we need.
namespace tidewell::heif {

/// Interleaved R, G, B and perhaps A, each one byte, or two (big-endian) when `bits` is more than 8.
struct Pixels {
  struct Release {
    void operator()(const heif_image* decoded) const { heif_image_release(decoded); }
  };
  std::unique_ptr<const heif_image, Release> image;  ///< owns what `origin` points to
  const std::uint8_t* origin = nullptr;              ///< of the first row
  std::int64_t stride = 0;
  std::int64_t width = 0;
  std::int64_t height = 0;
  int samplesPerPixel = 3;
  int bits = 8;
  bool premultiplied = false;
  std::optional<Color::HDR> hdr;
  double peak = 1000;  ///< of an HDR image, cd/m²

  std::size_t bytesPerPixel() const { return static_cast<std::size_t>(samplesPerPixel) * (bits > 8 ? 2 : 1); }
  std::span<const std::uint8_t> row(std::int64_t y) const {
    return {origin + y * stride, static_cast<std::size_t>(width) * bytesPerPixel()};
  }
};

/// Turns rows of pixels, as they lie in memory, into rows for others. HDR samples are brought to standard
/// range.
class RowConverter {
 public:
  explicit RowConverter(const Pixels& pixels);

  /// R, G, B, A of 8 bits, colours premultiplied; `out` has 4 bytes for each pixel of `row`.
  void premultiplied8(std::span<const std::uint8_t> row, std::span<std::uint8_t> out);
  /// Straight samples as a PNG stores them: 8 bits, or 16 big-endian for deeper and HDR images. Valid until
  /// the next call.
  std::span<const std::uint8_t> straight(std::span<const std::uint8_t> row);
  /// Straight R, G, B, A of 16 bits; `out` has 4 samples for each pixel of `row`.
  void straight16(std::span<const std::uint8_t> row, std::span<std::uint16_t> out);

 private:
  /// The row as straight or premultiplied samples (as stored) of 16 bits.
  std::span<std::uint16_t> samples16(std::span<const std::uint8_t> row);

  std::size_t samplesPerPixel_;
  int bits_;
  bool premultiplied_;
  std::vector<std::uint16_t> widened_;  ///< per code of `bits_`: the code of 16 bits
  std::optional<StandardRange> standardRange_;
  std::vector<std::uint16_t> samples_;
  std::vector<std::uint8_t> bytes_;
};

/// The rows, from top to bottom, of the image turned as an Exif orientation of 1 to 8 asks.
class TurnedRows {
 public:
  /// The pixels must outlive it.
  TurnedRows(const Pixels& pixels, int orientation);
  std::int64_t width() const { return swaps_ ? pixels_.height : pixels_.width; }
  std::int64_t height() const { return swaps_ ? pixels_.width : pixels_.height; }
  /// Row `y`, valid until the next call; cheapest in ascending order.
  std::span<const std::uint8_t> row(std::int64_t y);

 private:
  void fillBand(std::int64_t first);

  const Pixels& pixels_;
  bool swaps_;         ///< columns become rows
  bool mirrored_;      ///< rows run from right to left (columns from bottom to top)
  bool lastRowFirst_;  ///< the last row (column) becomes the first
  std::int64_t bandStart_ = -1;
  std::vector<std::uint8_t> band_;
};

}  // namespace tidewell::heif
