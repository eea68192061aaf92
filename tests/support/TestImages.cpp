// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/TestImages.h"

#include <gif_lib.h>

#include <cstdio>
// libjpeg's headers want <cstdio> first.
#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "CompressionKit/codecs/ImageSource.h"
#include "support/HEIFFile.h"

namespace tidewell::test {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File create(const URL& url) {
  File file(std::fopen(url.path().c_str(), "wb"), std::fclose);
  if (!file) throw std::runtime_error("cannot write " + url.path());
  return file;
}

ColorMapObject* colorMap(const std::vector<Pixel>& palette) {
  int size = 2;
  while (size < static_cast<int>(palette.size())) size *= 2;
  std::vector<GifColorType> colors(static_cast<std::size_t>(size));
  for (std::size_t i = 0; i < palette.size(); ++i) colors[i] = {palette[i][0], palette[i][1], palette[i][2]};
  return GifMakeMapObject(size, colors.data());
}

}  // namespace

Raster::Raster(int w, int h, const std::function<Pixel(int x, int y)>& color) : width(w), height(h) {
  pixels.reserve(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) pixels.push_back(color(x, y));
  }
}

Raster photoRaster(int width, int height, unsigned seed) {
  return {width, height, [&](int x, int y) -> Pixel {
            const double a = std::sin(x * 0.05 + seed) * 60 + std::sin(y * 0.031 + x * 0.013) * 50 + 128;
            const unsigned noise =
                (static_cast<unsigned>(x) * 73856093U ^ static_cast<unsigned>(y) * 19349663U ^ seed) % 13;
            const auto byte = [&](double v) {
              return static_cast<std::uint8_t>(std::fmin(255, std::fmax(0, v + noise)));
            };
            return {byte(a), byte(a * 0.6 + y % 60), byte(220 - a * 0.5), 255};
          }};
}

void writePNGFile(const URL& url, const Raster& raster, const PNGOptions& options) {
  const File file = create(url);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file.get());
  png_set_IHDR(png, info, static_cast<png_uint_32>(raster.width), static_cast<png_uint_32>(raster.height), 8,
               options.alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB,
               options.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (!options.icc.empty()) {
    png_set_iCCP(png, info, "icc", 0, reinterpret_cast<png_const_bytep>(options.icc.data()),
                 static_cast<png_uint_32>(options.icc.size()));
  }
  if (options.gamma) png_set_gAMA(png, info, *options.gamma);
  png_write_info(png, info);
  if (!options.alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
  for (int passes = png_set_interlace_handling(png); passes > 0; --passes) {
    for (int y = 0; y < raster.height; ++y) png_write_row(png, raster.at(0, y).data());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
}

void writeJPEGFile(const URL& url, const Raster& raster, const JPEGFileOptions& options) {
  const File file = create(url);
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  jpeg_stdio_dest(&jpeg, file.get());
  jpeg.image_width = static_cast<JDIMENSION>(raster.width);
  jpeg.image_height = static_cast<JDIMENSION>(raster.height);
  const auto kind = static_cast<std::size_t>(options.colors);
  constexpr std::array components{3, 1, 2, 4};
  constexpr std::array spaces{JCS_RGB, JCS_GRAYSCALE, JCS_UNKNOWN, JCS_CMYK};
  jpeg.input_components = components[kind];
  jpeg.in_color_space = spaces[kind];
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, options.quality, TRUE);
  jpeg.arith_code = options.arithmetic ? TRUE : FALSE;
  if (options.colors == JPEGColors::rgb) {
    jpeg.comp_info[0].h_samp_factor = options.across;
    jpeg.comp_info[0].v_samp_factor = options.down;
  }
  jpeg.restart_interval = static_cast<unsigned>(options.restart);
  if (options.progressive) jpeg_simple_progression(&jpeg);
  jpeg_start_compress(&jpeg, TRUE);
  const auto bytes = [](const std::string& text) { return reinterpret_cast<const JOCTET*>(text.data()); };
  if (!options.exif.empty()) {
    jpeg_write_marker(&jpeg, JPEG_APP0 + 1, bytes(options.exif), static_cast<unsigned>(options.exif.size()));
  }
  if (!options.icc.empty()) {
    jpeg_write_icc_profile(&jpeg, bytes(options.icc), static_cast<unsigned>(options.icc.size()));
  }
  std::vector<std::uint8_t> row;
  for (int y = 0; y < raster.height; ++y) {
    row.clear();
    for (int x = 0; x < raster.width; ++x) {
      const Pixel& pixel = raster.at(x, y);
      row.insert(row.end(), pixel.begin(), pixel.begin() + components[kind]);
    }
    JSAMPROW rows[] = {row.data()};
    jpeg_write_scanlines(&jpeg, rows, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
}

void writeGIFFile(const URL& url, const GIFFile& file) {
  int error = 0;
  GifFileType* gif = EGifOpenFileName(url.path().c_str(), false, &error);
  if (!gif) throw std::runtime_error("cannot write " + url.path());
  EGifSetGifVersion(gif, true);
  ColorMapObject* global = colorMap(file.palette);
  EGifPutScreenDesc(gif, file.width, file.height, 8, 0, global);
  GifFreeMapObject(global);
  if (file.loop >= 0) {
    const GifByteType loop[] = {1, static_cast<GifByteType>(file.loop & 0xFF),
                                static_cast<GifByteType>(file.loop >> 8)};
    EGifPutExtensionLeader(gif, APPLICATION_EXT_FUNC_CODE);
    EGifPutExtensionBlock(gif, 11, "NETSCAPE2.0");
    EGifPutExtensionBlock(gif, sizeof loop, loop);
    EGifPutExtensionTrailer(gif);
  }
  for (const GIFFrame& frame : file.frames) {
    const GifByteType control[] = {
        static_cast<GifByteType>(frame.disposal << 2 | (frame.transparent >= 0 ? 1 : 0)),
        static_cast<GifByteType>(frame.delay & 0xFF), static_cast<GifByteType>(frame.delay >> 8),
        static_cast<GifByteType>(frame.transparent >= 0 ? frame.transparent : 0)};
    EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, sizeof control, control);
    ColorMapObject* local = frame.palette.empty() ? nullptr : colorMap(frame.palette);
    GifFreeMapObject(gif->Image.ColorMap);  // of the frame before; giflib would forget it
    gif->Image.ColorMap = nullptr;
    EGifPutImageDesc(gif, frame.left, frame.top, frame.width, frame.height, frame.interlaced, local);
    if (local) GifFreeMapObject(local);
    const auto index = [&](int x, int y) {
      const auto before = static_cast<std::size_t>(y) * static_cast<std::size_t>(frame.width);
      return frame.indexes[frame.indexes.size() == 1 ? 0 : before + static_cast<std::size_t>(x)];
    };
    std::vector<GifPixelType> line(static_cast<std::size_t>(frame.width));
    const auto put = [&](int y) {
      for (int x = 0; x < frame.width; ++x) line[static_cast<std::size_t>(x)] = index(x, y);
      EGifPutLine(gif, line.data(), frame.width);
    };
    if (frame.interlaced) {
      for (const auto& [first, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
        for (int y = first; y < frame.height; y += step) put(y);
      }
    } else {
      for (int y = 0; y < frame.height; ++y) put(y);
    }
  }
  EGifCloseFile(gif, &error);
}

std::string pngChunk(const std::string& type, const std::string& data) {
  const std::string typed = type + data;
  const auto sum = crc32(0, reinterpret_cast<const Bytef*>(typed.data()), static_cast<uInt>(typed.size()));
  return number(data.size(), 4) + typed + number(sum, 4);
}

std::string withChunk(const std::string& png, const std::string& type, const std::string& data) {
  constexpr std::size_t behindHeader = 33;
  return png.substr(0, behindHeader) + pngChunk(type, data) + png.substr(behindHeader);
}

std::string pngOfOneRow(int width, int bitDepth, int colorType, const std::string& row,
                        const std::string& chunks) {
  const std::string filtered = '\0' + row;
  std::string pixels(compressBound(filtered.size()), '\0');
  uLongf size = pixels.size();
  compress(reinterpret_cast<Bytef*>(pixels.data()), &size, reinterpret_cast<const Bytef*>(filtered.data()),
           filtered.size());
  pixels.resize(size);
  const std::string header = number(static_cast<std::uint64_t>(width), 4) + number(1, 4) +
                             static_cast<char>(bitDepth) + static_cast<char>(colorType) +
                             std::string(3, '\0');
  return "\x89PNG\r\n\x1A\n" + pngChunk("IHDR", header) + chunks + pngChunk("IDAT", pixels) +
         pngChunk("IEND", "");
}

std::string jpegSegment(int marker, const std::string& body) {
  return std::string{'\xFF', static_cast<char>(marker)} + number(body.size() + 2, 2) + body;
}

std::string exifWithOrientation(int orientation, bool bigEndian) {
  std::string body = std::string("Exif\0\0", 6) + (bigEndian ? "MM" : "II");
  for (const auto& [value, bytes] :
       {std::pair(42, 2), {8, 4}, {1, 2}, {0x0112, 2}, {3, 2}, {1, 4}, {orientation, 2}, {0, 2}, {0, 4}}) {
    std::string text = number(static_cast<std::uint64_t>(value), bytes);
    if (!bigEndian) std::ranges::reverse(text);
    body += text;
  }
  return body;
}

std::vector<std::uint8_t> decoded(const URL& url, std::size_t index) {
  const auto source = ImageSource::open(url);
  const auto rows = source->rows(index);
  const auto bytes = static_cast<std::size_t>(rows->width()) * 4;
  std::vector<std::uint8_t> pixels;  // grows with what is there: headers may claim any height
  for (std::int64_t y = 0; y < rows->height(); ++y) {
    pixels.resize(pixels.size() + bytes);
    rows->read(std::span(pixels).last(bytes));
  }
  return pixels;
}

}  // namespace tidewell::test
