// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/PNGDecoder.h"

#include <png.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "CompressionKit/codecs/Exif.h"
#include "CompressionKit/codecs/PNGBytes.h"
#include "CompressionKit/codecs/PNGColor.h"
#include "CompressionKit/codecs/Premultiply.h"

namespace tidewell {
namespace {

/// Chunks that say nothing about pixels or colours: text may be long and compressed, and for eXIf libpng
/// allocates whatever length the chunk claims.
constexpr char ignoredChunks[] = "tEXt\0zTXt\0iTXt\0sPLT\0hIST\0tIME\0pCAL\0sCAL\0oFFs\0eXIf";
/// Two rows of the widest pixels at once, so that what a header claims costs a bounded amount.
constexpr auto maximumWidth = static_cast<png_uint_32>(ImageLimits::maximumResidentBytes / 16);

/// One decoding of a file from its start. Every call into libpng goes through `guarded`: its errors come back
/// by longjmp, so no object with a destructor may live in the calls in between.
class Reader {
 public:
  Reader(std::FILE* file, const StopToken& stop) : file_(file), stop_(stop) {
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, onError, [](png_structp, png_const_charp) {});
    if (png_) info_ = png_create_info_struct(png_);
    if (!info_) {
      png_destroy_read_struct(&png_, &info_, nullptr);
      throw std::bad_alloc();
    }
    std::rewind(file);
    try {
      guarded([&] {
        png_set_read_fn(png_, this, onRead);
        png_set_chunk_malloc_max(png_, static_cast<png_alloc_size_t>(ImageLimits::maximumMetadataBytes));
        png_set_chunk_cache_max(png_, 3);  // libpng's way of saying: one chunk
        png_set_user_limits(png_, maximumWidth, PNG_UINT_31_MAX);
        const auto bytes = [](const char* text) { return reinterpret_cast<png_const_bytep>(text); };
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, bytes(ignoredChunks),
                                    static_cast<int>(sizeof ignoredChunks / 5));
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_ALWAYS, bytes(codePointsChunk), 1);
        png_read_info(png_, info_);
      });
    } catch (...) {
      png_destroy_read_struct(&png_, &info_, nullptr);
      throw;
    }
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() { png_destroy_read_struct(&png_, &info_, nullptr); }

  png_structp png() const { return png_; }
  png_infop info() const { return info_; }
  std::int64_t width() const { return png_get_image_width(png_, info_); }
  std::int64_t height() const { return png_get_image_height(png_, info_); }
  bool isInterlaced() const { return png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE; }
  bool hasAlpha() const {
    return (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0 ||
           png_get_valid(png_, info_, PNG_INFO_tRNS) != 0;
  }

  template <typename Call>
  void guarded(Call call) {
    if (setjmp(png_jmpbuf(png_)) != 0) {
      stop_.throwIfStopped();
      throw ImageDecodeError(message_);
    }
    call();
  }

  void throwIfStopped() const { stop_.throwIfStopped(); }

  /// Into `row`, or nowhere. A few bytes of the file may hold millions of rows.
  void readRow(png_bytep row) {
    throwIfStopped();
    guarded([&] { png_read_row(png_, row, nullptr); });
  }

 private:
  static void onRead(png_structp png, png_bytep to, png_size_t size) {
    const auto& self = *static_cast<Reader*>(png_get_io_ptr(png));
    if (self.stop_.stopRequested()) png_error(png, "stopped");
    if (std::fread(to, 1, size, self.file_) != size) png_error(png, "cut off");
  }

  [[noreturn]] static void onError(png_structp png, png_const_charp message) {
    auto& self = *static_cast<Reader*>(png_get_error_ptr(png));
    std::strncpy(self.message_, message, sizeof self.message_ - 1);
    png_longjmp(png, 1);
  }

  std::FILE* file_;
  const StopToken& stop_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  char message_[128] = {};
};

/// The rows of an image as R, G, B, A; an interlaced one is held whole.
class Pixels {
 public:
  enum class Depth { eight, ofFile };

  /// `isProven` becomes true when all of the image has been seen to be sound.
  Pixels(std::FILE* file, const StopToken& stop, Depth depth, bool& isProven)
      : isProven_(isProven),
        reader_(file, stop),
        hasAlpha_(reader_.hasAlpha()),
        isWide_(depth == Depth::ofFile && png_get_bit_depth(reader_.png(), reader_.info()) > 8),
        rowBytes_(reader_.width() * (isWide_ ? 8 : 4)) {
    const bool interlaced = reader_.isInterlaced();
    if (interlaced && rowBytes_ > ImageLimits::maximumResidentBytes / reader_.height()) {
      throw ImageDecodeError("interlaced image too large");
    }
    const png_structp png = reader_.png();
    int passes = 1;
    reader_.guarded([&] {
      png_set_expand(png);
      if (isWide_) {
        png_set_swap(png);  // a PNG's samples are big-endian
      } else {
        png_set_scale_16(png);
      }
      png_set_gray_to_rgb(png);
      png_set_add_alpha(png, 0xFFFF, PNG_FILLER_AFTER);
      passes = png_set_interlace_handling(png);
      png_read_update_info(png, reader_.info());
    });
    if (interlaced) readWhole(passes);
  }

  std::int64_t width() const { return reader_.width(); }
  std::int64_t height() const { return reader_.height(); }
  bool hasAlpha() const { return hasAlpha_; }
  bool isWide() const { return isWide_; }  ///< samples of 16 bits

  void read(void* row) {
    advance(1);
    if (whole_.empty()) {
      reader_.readRow(static_cast<png_bytep>(row));
      if (next_ == height()) finish();
    } else {
      std::memcpy(row, whole_.data() + (next_ - 1) * rowBytes_, static_cast<std::size_t>(rowBytes_));
    }
  }

  void skip(std::int64_t count) {
    advance(count);
    for (; whole_.empty() && count > 0; --count) reader_.readRow(nullptr);
    if (whole_.empty() && next_ == height()) finish();
  }

 private:
  void advance(std::int64_t count) {
    reader_.throwIfStopped();
    if (count > height() - next_) throw ImageDecodeError("read past the last row");
    next_ += count;
  }

  void readWhole(int passes) {
    whole_.resize(static_cast<std::size_t>(rowBytes_ * height()));
    for (; passes > 0; --passes) {
      for (std::int64_t y = 0; y < height(); ++y) reader_.readRow(whole_.data() + y * rowBytes_);
    }
    finish();
  }

  /// What stands behind the last row is no matter to whoever reads rows: `verify` will say what is wrong.
  void finish() {
    if (isProven_) return;
    try {
      reader_.guarded([&] { png_read_end(reader_.png(), nullptr); });
      isProven_ = true;
    } catch (const ImageDecodeError&) {
    }
  }

  bool& isProven_;
  Reader reader_;
  bool hasAlpha_;
  bool isWide_;
  std::int64_t rowBytes_;
  std::int64_t next_ = 0;
  std::vector<std::uint8_t> whole_;  ///< an interlaced image, else empty
};

class PNGRowReader final : public RowReader {
 public:
  PNGRowReader(std::FILE* file, const StopToken& stop, bool& isProven)
      : pixels_(file, stop, Pixels::Depth::eight, isProven) {}
  std::int64_t width() const override { return pixels_.width(); }
  std::int64_t height() const override { return pixels_.height(); }
  void read(std::span<std::uint8_t> row) override {
    pixels_.read(row.data());
    if (pixels_.hasAlpha()) premultiply(row);
  }
  void skip(std::int64_t count) override { pixels_.skip(count); }

 private:
  Pixels pixels_;
};

class PNGDeepRowReader final : public DeepRowReader {
 public:
  PNGDeepRowReader(std::FILE* file, const StopToken& stop, bool& isProven)
      : pixels_(file, stop, Pixels::Depth::ofFile, isProven) {}
  std::int64_t width() const override { return pixels_.width(); }
  std::int64_t height() const override { return pixels_.height(); }
  void read(std::span<std::uint16_t> row) override {
    if (pixels_.isWide()) return pixels_.read(row.data());
    narrow_.resize(row.size());
    pixels_.read(narrow_.data());
    widen(narrow_, row);
  }

 private:
  Pixels pixels_;
  std::vector<std::uint8_t> narrow_;
};

class PNGSource final : public ImageSource {
 public:
  PNGSource(const ImageInput& input, StopToken stop)
      : stop_(std::move(stop)), input_(input), file_(input.stream()) {
    const Reader reader(file_.get(), stop_);
    properties_.width = reader.width();
    properties_.height = reader.height();
    properties_.hasAlpha = reader.hasAlpha();
    properties_.bitsPerSample = std::max<int>(8, png_get_bit_depth(reader.png(), reader.info()));
    describePNGColor(reader.png(), reader.info(), input, stop_, properties_);
  }

  Container container() const override { return Container::png; }
  std::size_t count() override { return 1; }
  ImageProperties properties(std::size_t) override {
    // It may stand behind the pixels: a walk over all chunks, for nothing where only pixels are compared.
    if (!isOrientationKnown_) {
      const auto exif = chunkData(input_, "eXIf", stop_);
      if (exif) properties_.orientation = readExif(*exif).orientation;
      isOrientationKnown_ = true;
    }
    return properties_;
  }
  std::unique_ptr<RowReader> rows(std::size_t, std::int64_t) override {
    return std::make_unique<PNGRowReader>(file_.get(), stop_, isProven_);
  }
  std::unique_ptr<DeepRowReader> deepRows(std::size_t) override {
    return std::make_unique<PNGDeepRowReader>(file_.get(), stop_, isProven_);
  }

  /// Inflates and unfilters all rows, checks all sums, keeps nothing.
  void verify(std::size_t) override {
    stop_.throwIfStopped();
    if (isProven_) return;
    Reader reader(file_.get(), stop_);
    int passes = 1;
    reader.guarded([&] {
      passes = png_set_interlace_handling(reader.png());
      png_read_update_info(reader.png(), reader.info());
    });
    for (std::int64_t rows = reader.height() * passes; rows > 0; --rows) reader.readRow(nullptr);
    reader.guarded([&] { png_read_end(reader.png(), nullptr); });
    isProven_ = true;
  }

 private:
  StopToken stop_;
  ImageInput input_;
  ImageInput::Stream file_;
  bool isProven_ = false;
  bool isOrientationKnown_ = false;
  ImageProperties properties_;
};

}  // namespace

bool looksLikePNG(std::string_view head) {
  return head.starts_with(pngSignature);
}

std::unique_ptr<ImageSource> openPNG(const ImageInput& input, const StopToken& stop) {
  return std::make_unique<PNGSource>(input, stop);
}

}  // namespace tidewell
