// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "CompressionKit/codecs/Bitmap.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Writes one PNG file row by row, with the colour tag of its source. A file given by name is made, or
/// written over, at once and removed unless `finish()` was reached. Throws `FileError`, of a full disk no
/// later than in `finish()`; `ImageDecodeError` for impossible sizes.
class PNGWriter {
 public:
  struct Options {
    std::int64_t width = 0;
    std::int64_t height = 0;
    bool hasAlpha = true;   ///< without it the alpha bytes of the rows are dropped
    int bitsPerSample = 8;  ///< 8 or 16
    ColorTag color;
    std::vector<std::array<std::uint8_t, 4>> palette = {};  ///< at most 256 straight R, G, B, A; if any, the
                                                            ///< rows are indexes into it, a byte a pixel
    bool stored = false;  ///< no compression at all, else little: the files live for seconds
  };
  PNGWriter(const URL& url, const Options& options);
  /// Into an empty file that is open for writing.
  PNGWriter(Descriptor file, const Options& options);
  PNGWriter(const PNGWriter&) = delete;
  PNGWriter& operator=(const PNGWriter&) = delete;
  ~PNGWriter();

  /// A premultiplied 8-bit RGBA row; colours are divided by alpha again for the file.
  void writeRow(std::span<const std::uint8_t> premultipliedRGBA);
  /// A row of straight samples in the file's own layout (RGB or RGBA, big-endian when 16 bits wide; indexes).
  void writeStraightRow(std::span<const std::uint8_t> samples);
  void finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// libpng refuses profiles that photos do carry: an odd length, a white point that is slightly off. Which,
/// and whether when they are set or when they are written, depends on its release; so one is written to
/// nowhere.
bool isAllowedInPNG(const std::string& icc);

/// The whole bitmap as one stored PNG, for comparison with another one of the same colours: a profile that
/// PNG files may not carry is left out of both.
void writePNG(const Bitmap& bitmap, const URL& url);

}  // namespace tidewell
