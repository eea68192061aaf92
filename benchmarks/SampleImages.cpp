// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "benchmarks/SampleImages.h"

#include <gif_lib.h>
#include <jpeglib.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>

namespace tidewell::samples {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File create(const std::string& path) {
  File file(std::fopen(path.c_str(), "wb"), std::fclose);
  if (!file) throw std::runtime_error("cannot write " + path);
  return file;
}

// A tiny big-endian Exif block: one IFD with one orientation entry.
std::array<JOCTET, 32> exif(int orientation) {
  return {'E', 'x', 'i', 'f', 0,  0, 'M', 'M', 0, 42, 0, 0, 0,
          8,   0,   1,   1,   18, 0, 3,   0,   0, 0,  1, 0, static_cast<JOCTET>(orientation),
          0,   0,   0,   0,   0,  0};
}

using RowMaker = std::function<void(std::int64_t y, std::uint8_t* row)>;

void writePNG(const std::string& path, std::int64_t width, std::int64_t height, int colorType,
              const RowMaker& make) {
  const File file = create(path);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * (colorType == PNG_COLOR_TYPE_RGBA ? 4 : 3));
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    std::fprintf(stderr, "libpng failed on %s\n", path.c_str());
    std::abort();  // a sample maker has nothing to recover
  }
  png_init_io(png, file.get());
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8, colorType,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 6);
  png_write_info(png, info);
  for (std::int64_t y = 0; y < height; ++y) {
    make(y, row.data());
    png_write_row(png, row.data());
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
}

std::uint32_t mix(std::uint32_t a, std::uint32_t b) {
  std::uint32_t h = a * 0x9E3779B1U ^ b * 0x85EBCA77U;
  h ^= h >> 15;
  h *= 0x2C1B3C6DU;
  return h ^ (h >> 12);
}

}  // namespace

void writePhotoJPEG(const std::string& path, std::int64_t width, std::int64_t height, std::uint32_t seed,
                    const JPEGOptions& options) {
  const File file = create(path);
  const Photo photo(width, height, seed);
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);  // prints and exits: a sample maker has nothing to recover
  jpeg_create_compress(&jpeg);
  jpeg_stdio_dest(&jpeg, file.get());
  jpeg.image_width = static_cast<JDIMENSION>(width);
  jpeg.image_height = static_cast<JDIMENSION>(height);
  jpeg.input_components = 3;
  jpeg.in_color_space = JCS_RGB;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, options.quality, TRUE);
  if (options.fullChroma) jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
  if (options.progressive) jpeg_simple_progression(&jpeg);
  jpeg_start_compress(&jpeg, TRUE);
  if (options.orientation != 0) {
    const auto block = exif(options.orientation);
    jpeg_write_marker(&jpeg, JPEG_APP0 + 1, block.data(), static_cast<unsigned>(block.size()));
  }
  if (!options.icc.empty()) {
    jpeg_write_icc_profile(&jpeg, reinterpret_cast<const JOCTET*>(options.icc.data()),
                           static_cast<unsigned>(options.icc.size()));
  }
  std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 3);
  for (std::int64_t y = 0; y < height; ++y) {
    photo.row(y, row.data());
    JSAMPROW rows[] = {row.data()};
    jpeg_write_scanlines(&jpeg, rows, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
}

void writePhotoPNG(const std::string& path, std::int64_t width, std::int64_t height, std::uint32_t seed) {
  const Photo photo(width, height, seed);
  writePNG(path, width, height, PNG_COLOR_TYPE_RGB,
           [&](std::int64_t y, std::uint8_t* row) { photo.row(y, row); });
}

void writeScreenshotPNG(const std::string& path, std::int64_t width, std::int64_t height,
                        std::uint32_t seed) {
  const std::int64_t pictureWidth = width / 4, pictureHeight = height / 4;
  const std::int64_t pictureX = width - pictureWidth - width / 16, pictureY = height / 5;
  const Photo picture(pictureWidth, pictureHeight, seed);
  std::vector<std::uint8_t> pictureRow(static_cast<std::size_t>(pictureWidth) * 3);
  writePNG(path, width, height, PNG_COLOR_TYPE_RGB, [&](std::int64_t y, std::uint8_t* row) {
    const bool hasPicture = y >= pictureY && y < pictureY + pictureHeight;
    if (hasPicture) picture.row(y - pictureY, pictureRow.data());
    for (std::int64_t x = 0; x < width; ++x) {
      std::uint8_t* pixel = row + 3 * x;
      if (hasPicture && x >= pictureX && x < pictureX + pictureWidth) {
        std::copy_n(pictureRow.data() + 3 * (x - pictureX), 3, pixel);
        continue;
      }
      std::array<int, 3> color = {250, 250, 252};  // the page
      if (y < 32) {
        color = {static_cast<int>(58 + y / 2), static_cast<int>(62 + y / 2), static_cast<int>(74 + y / 2)};
      } else if (x < width / 6) {
        color = {236, 238, 242};  // the side panel
      }
      // Text: cells of 8 × 16 pixels with a 5 × 9 glyph, in lines with ragged ends.
      const std::int64_t cx = x / 8, cy = y / 16, gx = x % 8, gy = y % 16;
      const auto line = mix(static_cast<std::uint32_t>(cy), seed);
      const bool inText = y >= 48 && gx < 5 && gy >= 3 && gy < 12 && line % 5 != 0 &&
                          cx % (width / 24) < static_cast<std::int64_t>(line % 40) + width / 48;
      if (inText) {
        const auto glyph = mix(static_cast<std::uint32_t>(cx) * 31U + line, seed + 1);
        if (glyph % 7 != 0 && ((glyph >> ((gx + gy * 3) % 29)) & 1U) != 0) {
          color = line % 11 == 1 ? std::array<int, 3>{20, 90, 200} : std::array<int, 3>{36, 38, 42};
        }
      }
      for (std::size_t c = 0; c < 3; ++c) pixel[c] = static_cast<std::uint8_t>(color[c]);
    }
  });
}

void writeIconPNG(const std::string& path, std::int64_t size) {
  const auto s = static_cast<double>(size);
  writePNG(path, size, size, PNG_COLOR_TYPE_RGBA, [&](std::int64_t y, std::uint8_t* row) {
    for (std::int64_t x = 0; x < size; ++x) {
      const double dx = (static_cast<double>(x) + 0.5) / s - 0.5,
                   dy = (static_cast<double>(y) + 0.5) / s - 0.47;
      const double disc = std::clamp((0.38 - std::hypot(dx, dy)) * s + 0.5, 0.0, 1.0);
      const double shadow = 0.45 * std::exp(-std::pow(std::hypot(dx, dy - 0.04) / 0.40, 8));
      const double alpha = disc + (1 - disc) * shadow;
      const double wave = std::sin(dx * 22 + std::sin(dy * 9) * 2) * 0.5 + 0.5;
      const std::array<double, 3> color = {30 + 40 * wave, 120 + 70 * (0.5 - dy), 190 + 50 * wave};
      for (std::size_t c = 0; c < 3; ++c) {
        row[4 * x + static_cast<std::int64_t>(c)] =
            static_cast<std::uint8_t>(alpha > 0 ? std::clamp(color[c] * disc / alpha, 0.0, 255.0) : 0.0);
      }
      row[4 * x + 3] = static_cast<std::uint8_t>(alpha * 255 + 0.5);
    }
  });
}

void writeAnimationGIF(const std::string& path, int width, int height, int frames, std::uint32_t seed) {
  int error = 0;
  GifFileType* gif = EGifOpenFileName(path.c_str(), false, &error);
  if (!gif) throw std::runtime_error("cannot write " + path);
  EGifSetGifVersion(gif, true);
  // A 6 × 7 × 6 colour cube, the rest unused.
  std::array<GifColorType, 256> colors{};
  for (int i = 0; i < 252; ++i) {
    colors[static_cast<std::size_t>(i)] = {static_cast<GifByteType>(i / 42 * 51),
                                           static_cast<GifByteType>(i / 6 % 7 * 255 / 6),
                                           static_cast<GifByteType>(i % 6 * 51)};
  }
  ColorMapObject* map = GifMakeMapObject(256, colors.data());
  EGifPutScreenDesc(gif, width, height, 8, 0, map);
  const std::array<GifByteType, 3> loop = {1, 0, 0};
  EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE);
  EGifPutExtensionBlock(gif, 11, "NETSCAPE2.0");
  EGifPutExtensionBlock(gif, static_cast<int>(loop.size()), loop.data());
  EGifPutExtensionTrailer(gif);
  std::vector<GifPixelType> row(static_cast<std::size_t>(width));
  for (int frame = 0; frame < frames; ++frame) {
    const std::array<GifByteType, 4> control = {1 << 2, 10, 0, 0};
    EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(control.size()), control.data());
    EGifPutImageDesc(gif, 0, 0, width, height, false, nullptr);
    const double t = frame * 0.13;
    const double bx = width * (0.5 + 0.35 * std::cos(t)), by = height * (0.5 + 0.35 * std::sin(t * 1.3));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        double r = 60 + 120.0 * x / width, g = 90 + 90.0 * y / height, b = 160 - 60.0 * x / width;
        const double d = std::hypot(x - bx, y - by) / (0.18 * std::min(width, height));
        if (d < 1) r += 90 * (1 - d * d), g += 60 * (1 - d), b -= 60 * (1 - d);
        // Ordered noise hides the steps of the cube, as encoders of animations do.
        const double dither = (mix(static_cast<std::uint32_t>(x * 7919 + y), seed) % 64) / 64.0 - 0.5;
        const auto level = [&](double value, double step, int top) {
          return std::clamp(static_cast<int>(std::lround(value / step + dither * 0.8)), 0, top);
        };
        row[static_cast<std::size_t>(x)] =
            static_cast<GifPixelType>(level(r, 51, 5) * 42 + level(g, 42.5, 6) * 6 + level(b, 51, 5));
      }
      EGifPutLine(gif, row.data(), width);
    }
  }
  GifFreeMapObject(map);
  if (EGifCloseFile(gif, &error) != GIF_OK) throw std::runtime_error("cannot write " + path);
}

}  // namespace tidewell::samples
