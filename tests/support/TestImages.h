// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/URL.h"

/// Small image files of known pixels, made through the libraries themselves.
namespace tidewell::test {

using Pixel = std::array<std::uint8_t, 4>;  ///< R, G, B, A, not premultiplied

struct Raster {
  int width = 0, height = 0;
  std::vector<Pixel> pixels;
  Raster(int w, int h, const std::function<Pixel(int x, int y)>& color);
  const Pixel& at(int x, int y) const { return pixels[static_cast<std::size_t>(y * width + x)]; }
};

/// Smooth colours with some detail; the same for the same size and seed.
Raster photoRaster(int width, int height, unsigned seed = 1);

struct PNGOptions {
  bool alpha = false;
  bool interlaced = false;
  std::string icc = {};
  std::optional<double> gamma = {};
};
void writePNGFile(const URL& url, const Raster& raster, const PNGOptions& options = {});

enum class JPEGColors { rgb, grey, pair, inks };  ///< 3, 1, 2 (of no meaning) or 4 components of each pixel
struct JPEGFileOptions {
  int quality = 90;
  int across = 2, down = 2;  ///< pixels that share one chroma sample
  bool progressive = false;
  bool arithmetic = false;
  int restart = 0;  ///< groups of blocks between two restart markers
  JPEGColors colors = JPEGColors::rgb;
  std::string exif = {};  ///< the body of an APP1 segment
  std::string icc = {};
};
void writeJPEGFile(const URL& url, const Raster& raster, const JPEGFileOptions& options = {});

struct GIFFrame {
  int left = 0, top = 0, width = 1, height = 1;
  std::vector<std::uint8_t> indexes;  ///< width × height; a single value fills the frame
  int disposal = 0;
  int delay = 10;  ///< hundredths of a second
  int transparent = -1;
  std::vector<Pixel> palette = {};  ///< local; empty for the global one
  bool interlaced = false;
};
struct GIFFile {
  int width = 4, height = 4;
  std::vector<Pixel> palette = {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}, {255, 255, 255, 255}};
  std::vector<GIFFrame> frames;
  int loop = -1;  ///< -1 for no looping extension
};
void writeGIFFile(const URL& url, const GIFFile& file);

/// One PNG chunk with its CRC, and a copy of `png` with it after IHDR.
std::string pngChunk(const std::string& type, const std::string& data);
std::string withChunk(const std::string& png, const std::string& type, const std::string& data);
/// A PNG of one row of any kind; `chunks` go between header and pixels.
std::string pngOfOneRow(int width, int bitDepth, int colorType, const std::string& row,
                        const std::string& chunks = {});

/// One JPEG segment with its length.
std::string jpegSegment(int marker, const std::string& body);
/// An Exif APP1 body whose only entry is the orientation, in either byte order.
std::string exifWithOrientation(int orientation, bool bigEndian = false);

/// All rows of one image: premultiplied R, G, B, A. Throws what the decoder throws.
std::vector<std::uint8_t> decoded(const URL& url, std::size_t index = 0);

}  // namespace tidewell::test
