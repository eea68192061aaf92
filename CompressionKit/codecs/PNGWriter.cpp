// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/PNGWriter.h"

#include <fcntl.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "CompressionKit/codecs/Premultiply.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {

/// Calls into libpng go through `guarded`: its errors come back by longjmp, so no object with a destructor
/// may live in the calls in between. A failed write is kept and thrown as what it was.
struct PNGWriter::Impl {
  /// Without a file, makes the one of that path.
  Impl(Descriptor target, std::string path, const Options& wanted)
      : name(std::move(path)), options(wanted), file(std::move(target)), isOurs(!file) {
    if (options.width < 1 || options.height < 1 || options.width > PNG_UINT_31_MAX ||
        options.height > PNG_UINT_31_MAX) {
      throw ImageDecodeError("PNG of impossible size");
    }
    if (isOurs) file = Descriptor(open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (!file) throw FileError("写入", name, errno);
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, onError, [](png_structp, png_const_charp) {});
    if (png) info = png_create_info_struct(png);
    if (!info) {
      png_destroy_write_struct(&png, &info);
      throw std::bad_alloc();
    }
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    png_destroy_write_struct(&png, &info);
    if (isOurs && !finished) unlink(name.c_str());
  }

  template <typename Call>
  void guarded(Call call) {
    if (setjmp(png_jmpbuf(png)) != 0) {
      if (writeError != 0) throw FileError("写入", name, writeError);
      throw ImageDecodeError(message);
    }
    call();
  }

  void begin() {
    const int type = !options.palette.empty() ? PNG_COLOR_TYPE_PALETTE
                     : options.hasAlpha       ? PNG_COLOR_TYPE_RGBA
                                              : PNG_COLOR_TYPE_RGB;
    guarded([this, type] {
      png_set_write_fn(png, this, onWrite, [](png_structp) {});
      png_set_IHDR(png, info, static_cast<png_uint_32>(options.width),
                   static_cast<png_uint_32>(options.height), options.bitsPerSample, type, PNG_INTERLACE_NONE,
                   PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
      if (!options.palette.empty()) writePalette();
      // Run lengths over differences: near the cost of copying, yet flat areas and palettes shrink well.
      png_set_compression_level(png, options.stored ? 0 : 1);
      png_set_compression_strategy(png, Z_RLE);
      png_set_filter(png, PNG_FILTER_TYPE_BASE,
                     options.stored || !options.palette.empty() ? PNG_FILTER_NONE : PNG_FILTER_SUB);
      png_set_compression_buffer_size(png, 1 << 16);
      writeColor();
      png_write_info(png, info);
      // libpng 1.6.39 knows nothing of these yet; they stand anywhere between the header and the pixels.
      if (const std::string& points = options.color.codePoints; !points.empty()) {
        png_write_chunk(png, reinterpret_cast<png_const_bytep>("cICP"),
                        reinterpret_cast<png_const_bytep>(points.data()), points.size());
      }
    });
  }

  void writePalette() {
    png_color colors[PNG_MAX_PALETTE_LENGTH] = {};
    png_byte alphas[PNG_MAX_PALETTE_LENGTH] = {};
    const int count = static_cast<int>(options.palette.size());
    bool opaque = true;
    for (std::size_t i = 0; i < options.palette.size(); ++i) {
      const auto& [red, green, blue, alpha] = options.palette.at(i);
      colors[i] = {red, green, blue};
      alphas[i] = alpha;
      opaque = opaque && alpha == 255;
    }
    png_set_PLTE(png, info, colors, count);
    if (!opaque) png_set_tRNS(png, info, alphas, count, nullptr);
  }

  void writeColor() {
    const ColorTag& color = options.color;
    if (!color.icc.empty()) {
      png_set_iCCP(png, info, "icc", PNG_COMPRESSION_TYPE_BASE,
                   reinterpret_cast<png_const_bytep>(color.icc.data()),
                   static_cast<png_uint_32>(color.icc.size()));
      return;
    }
    if (color.srgb) png_set_sRGB(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
    if (color.gamma) png_set_gAMA(png, info, *color.gamma);
    if (const auto& xy = color.chromaticity) {
      png_set_cHRM(png, info, (*xy)[0], (*xy)[1], (*xy)[2], (*xy)[3], (*xy)[4], (*xy)[5], (*xy)[6], (*xy)[7]);
    }
  }

  /// What stood there before and is longer. To write over it costs far less than new room on the disk.
  void cutRest() {
    struct stat status {};
    if (fstat(file.get(), &status) != 0 ||
        (status.st_size > written && ftruncate(file.get(), written) != 0)) {
      throw FileError("写入", name, errno);
    }
  }

  [[noreturn]] static void onError(png_structp handle, png_const_charp text) {
    auto& self = *static_cast<Impl*>(png_get_error_ptr(handle));
    std::strncpy(self.message, text, sizeof self.message - 1);
    png_longjmp(handle, 1);
  }

  /// Collects, for libpng writes a palette by 3 bytes.
  static void onWrite(png_structp handle, png_bytep data, png_size_t size) {
    auto& self = *static_cast<Impl*>(png_get_io_ptr(handle));
    while (size > 0) {
      const std::size_t count = std::min(size, self.collected.size() - self.waiting);
      std::memcpy(self.collected.data() + self.waiting, data, count);
      self.waiting += count;
      data += count;
      size -= count;
      if (self.waiting == self.collected.size() && !self.writeThrough()) png_error(handle, "write failed");
    }
  }

  /// False after a failure, with its number in `writeError`.
  bool writeThrough() noexcept {
    for (std::size_t done = 0; done < waiting;) {
      const ssize_t count = write(file.get(), collected.data() + done, waiting - done);
      if (count >= 0) {
        done += static_cast<std::size_t>(count);
        written += count;
      } else if (errno != EINTR) {
        writeError = errno;
        return false;
      }
    }
    waiting = 0;
    return true;
  }

  std::string name;
  Options options;
  Descriptor file;
  bool isOurs;
  png_structp png = nullptr;
  png_infop info = nullptr;
  bool finished = false;
  std::array<std::uint8_t, 1 << 16> collected = {};
  std::size_t waiting = 0;  ///< bytes of `collected` that are not in the file yet
  off_t written = 0;
  int writeError = 0;
  char message[128] = {};
  std::vector<std::uint8_t> straight;
};

PNGWriter::PNGWriter(const URL& url, const Options& options)
    : impl_(std::make_unique<Impl>(Descriptor(), url.path(), options)) {
  impl_->begin();
}

PNGWriter::PNGWriter(Descriptor file, const Options& options)
    : impl_(std::make_unique<Impl>(std::move(file), "", options)) {
  impl_->begin();
}

PNGWriter::~PNGWriter() = default;

void PNGWriter::writeRow(std::span<const std::uint8_t> row) {
  auto& straight = impl_->straight;
  if (impl_->options.hasAlpha) {
    straight.assign(row.begin(), row.end());
    for (std::size_t i = 0; i + 3 < row.size(); i += 4) {
      if (row[i + 3] == 255) continue;
      for (std::size_t c = 0; c < 3; ++c) straight[i + c] = unpremultiplied(row[i + c], row[i + 3]);
    }
  } else {
    straight.resize(row.size() / 4 * 3);
    for (std::size_t from = 0, to = 0; from < row.size(); from += 4, to += 3) {
      std::memcpy(straight.data() + to, row.data() + from, 3);
    }
  }
  writeStraightRow(straight);
}

void PNGWriter::writeStraightRow(std::span<const std::uint8_t> samples) {
  impl_->guarded([&] { png_write_row(impl_->png, samples.data()); });
}

void PNGWriter::finish() {
  impl_->guarded([&] { png_write_end(impl_->png, nullptr); });
  if (!impl_->writeThrough()) throw FileError("写入", impl_->name, impl_->writeError);
  if (impl_->isOurs) impl_->cutRest();
  if (close(impl_->file.release()) != 0) throw FileError("写入", impl_->name, errno);
  impl_->finished = true;
}

bool isAllowedInPNG(const std::string& icc) {
  const auto onError = [](png_structp png, png_const_charp) { png_longjmp(png, 1); };
  png_structp png =
      png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, [](png_structp, png_const_charp) {});
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  volatile bool allowed = false;
  if (info && setjmp(png_jmpbuf(png)) == 0) {
    png_set_write_fn(
        png, nullptr, [](png_structp, png_bytep, png_size_t) {}, [](png_structp) {});
    png_set_IHDR(png, info, 1, 1, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_iCCP(png, info, "icc", PNG_COMPRESSION_TYPE_BASE, reinterpret_cast<png_const_bytep>(icc.data()),
                 static_cast<png_uint_32>(icc.size()));
    png_write_info(png, info);
    allowed = png_get_valid(png, info, PNG_INFO_iCCP) != 0;
  }
  png_destroy_write_struct(&png, &info);
  return allowed;
}

void writePNG(const Bitmap& bitmap, const URL& url) {
  ColorTag color = bitmap.color;
  if (!color.icc.empty() && !isAllowedInPNG(color.icc)) color.icc.clear();
  PNGWriter writer(url, {.width = bitmap.width,
                         .height = bitmap.height,
                         .hasAlpha = bitmap.hasAlpha,
                         .bitsPerSample = 8,
                         .color = color,
                         .stored = true});
  for (std::int64_t y = 0; y < bitmap.height; ++y) writer.writeRow(bitmap.row(y));
  writer.finish();
}

}  // namespace tidewell
