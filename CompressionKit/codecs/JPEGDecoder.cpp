#include "CompressionKit/codecs/JPEGDecoder.h"

#include <csetjmp>
#include <cstdio>
// libjpeg's headers want <cstdio> first.
#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/JPEGHeader.h"
#include "CompressionKit/codecs/SparseCoefficients.h"

namespace tidewell {
namespace {

/// More scans than any encoder writes; each costs a pass over the whole image, so that huge ones may have
/// fewer, as many as read this many blocks.
constexpr std::int64_t maximumScans = 100;
constexpr std::int64_t maximumBlocksRead = maximumScans << 22;

struct ErrorManager {
  jpeg_error_mgr base{};
  std::jmp_buf jump;
  const StopToken* stop = nullptr;
  boolean (*fill)(j_decompress_ptr) = nullptr;  ///< libjpeg's own way to read on
  char message[JMSG_LENGTH_MAX] = {};
};

struct Progress {
  jpeg_progress_mgr base{};
  std::int64_t maximumScans = 1;
};

struct Handle {
  Handle() = default;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { jpeg_destroy_decompress(&jpeg); }
  jpeg_decompress_struct jpeg{};
};

ErrorManager& errorsOf(j_common_ptr jpeg) {
  return *reinterpret_cast<ErrorManager*>(jpeg->err);
}

[[noreturn]] void fail(j_common_ptr jpeg) {
  jpeg->err->format_message(jpeg, errorsOf(jpeg).message);
  std::longjmp(errorsOf(jpeg).jump, 1);
}

/// Called where much may lie before the next row.
void failIfStopped(j_common_ptr jpeg) {
  if (errorsOf(jpeg).stop->stopRequested()) ERREXIT(jpeg, JERR_INPUT_EOF);
}

/// Warnings that mean missing or broken pixels. Others (bytes between segments, odd application markers)
/// are found in sound photos.
bool meansDamage(int code) {
  return code == JWRN_HIT_MARKER || code == JWRN_JPEG_EOF || code == JWRN_HUFF_BAD_CODE ||
         code == JWRN_MUST_RESYNC;
}

/// One decompression of a file from its start. Every call into libjpeg goes through `guarded`: its errors
/// come back by longjmp, so no object with a destructor may live in the calls in between.
class Decompressor {
 public:
  Decompressor(std::FILE* file, const StopToken& stop, std::int64_t maximumPlainBytes) : stop_(stop) {
    errors_.stop = &stop_;
    jpeg().err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = fail;
    // Damage ends the decoding at once: libjpeg would go on with grey for as long as the header claims.
    errors_.base.emit_message = [](j_common_ptr jpeg, int level) {
      if (level < 0 && meansDamage(jpeg->err->msg_code)) fail(jpeg);
    };
    progress_.base.progress_monitor = [](j_common_ptr jpeg) {
      failIfStopped(jpeg);
      const auto* decompress = reinterpret_cast<j_decompress_ptr>(jpeg);
      const auto* progress = reinterpret_cast<Progress*>(jpeg->progress);
      if (decompress->input_scan_number > progress->maximumScans) ERREXIT(jpeg, JERR_BAD_PROGRESSION);
    };
    std::rewind(file);
    guarded([&] {
      jpeg_create_decompress(&jpeg());
      jpeg().progress = &progress_.base;
      // libjpeg has nowhere to put what goes beyond this.
      jpeg().mem->max_memory_to_use = static_cast<long>(ImageLimits::maximumResidentBytes);
      jpeg_stdio_src(&jpeg(), file);
      errors_.fill = std::exchange(jpeg().src->fill_input_buffer, [](j_decompress_ptr decompress) {
        failIfStopped(reinterpret_cast<j_common_ptr>(decompress));
        return errorsOf(reinterpret_cast<j_common_ptr>(decompress)).fill(decompress);
      });
      jpeg_read_header(&jpeg(), TRUE);
    });
    const std::int64_t blocks = SparseCoefficients::blockCount(jpeg());
    progress_.maximumScans = std::clamp(maximumBlocksRead / blocks, std::int64_t{1}, maximumScans);
    if (blocks * std::int64_t{sizeof(JBLOCK)} > maximumPlainBytes) coefficients_.emplace(jpeg());
  }

  jpeg_decompress_struct& jpeg() { return handle_.jpeg; }

  template <typename Call>
  void guarded(Call call) {
    if (setjmp(errors_.jump) != 0) {
      stop_.throwIfStopped();
      throw ImageDecodeError(errors_.message);
    }
    call();
  }

  void throwIfStopped() const { stop_.throwIfStopped(); }

 private:
  StopToken stop_;
  Progress progress_;
  ErrorManager errors_;
  std::optional<SparseCoefficients> coefficients_;
  Handle handle_;
};

bool isInks(J_COLOR_SPACE space) {
  return space == JCS_CMYK || space == JCS_YCCK;
}

class JPEGRowReader final : public RowReader {
 public:
  /// `isProven` becomes true when all of the image has been seen to be sound.
  JPEGRowReader(std::FILE* file, const StopToken& stop, std::int64_t minimumLongSide,
                std::int64_t maximumPlainBytes, bool& isProven)
      : isProven_(isProven), decompressor_(file, stop, maximumPlainBytes) {
    auto& jpeg = decompressor_.jpeg();
    const bool inks = isInks(jpeg.jpeg_color_space);
    jpeg.out_color_space = inks ? JCS_CMYK : JCS_EXT_RGBA;
    const std::int64_t longSide = std::max(jpeg.image_width, jpeg.image_height);
    jpeg.scale_denom = 8;
    jpeg.scale_num = 8;
    if (minimumLongSide > 0) {
      // Halves only: for the sizes in between libjpeg-turbo has no vector code, and takes twice as long.
      while (jpeg.scale_num > 1 && longSide * (jpeg.scale_num / 2) / 8 >= minimumLongSide)
        jpeg.scale_num /= 2;
    }
    decompressor_.guarded([&] { jpeg_start_decompress(&jpeg); });
    if (jpeg_has_multiple_scans(&jpeg)) isProven_ = true;  // all of them have just been read
    if (inks) inks_.resize(static_cast<std::size_t>(jpeg.output_width) * 4);
  }

  std::int64_t width() const override { return decompressor_.jpeg().output_width; }
  std::int64_t height() const override { return decompressor_.jpeg().output_height; }

  void read(std::span<std::uint8_t> row) override {
    auto& jpeg = decompressor_.jpeg();
    decompressor_.throwIfStopped();
    if (jpeg.output_scanline >= jpeg.output_height) throw ImageDecodeError("read past the last row");
    JSAMPROW target = inks_.empty() ? row.data() : inks_.data();
    decompressor_.guarded([&] { jpeg_read_scanlines(&jpeg, &target, 1); });
    if (!inks_.empty()) convertInks(row);
    if (jpeg.output_scanline == jpeg.output_height && !hasSkipped_ && !isProven_) finish();
  }

  void skip(std::int64_t count) override {
    auto& jpeg = decompressor_.jpeg();
    const std::int64_t left = static_cast<std::int64_t>(jpeg.output_height) - jpeg.output_scanline;
    if (count > left) throw ImageDecodeError("read past the last row");
    hasSkipped_ = true;
    // libjpeg-turbo 2.1 delivers wrong rows after a skip where chroma has a quarter of the rows.
    if (jpeg.max_v_samp_factor > 2) return RowReader::skip(count);
    decompressor_.guarded([&] { jpeg_skip_scanlines(&jpeg, static_cast<JDIMENSION>(count)); });
  }

 private:
  /// What stands behind the last row is no matter to whoever reads rows: `verify` will say what is wrong.
  void finish() {
    try {
      decompressor_.guarded([&] { jpeg_finish_decompress(&decompressor_.jpeg()); });
      isProven_ = true;
    } catch (const ImageDecodeError&) {
    }
  }

  /// Adobe's files, which are nearly all of this kind, hold the inks inverted; viewers take all others so
  /// too.
  void convertInks(std::span<std::uint8_t> row) {
    for (std::size_t i = 0; i < inks_.size(); i += 4) {
      const unsigned key = inks_[i + 3];
      for (std::size_t c = 0; c < 3; ++c) {
        row[i + c] = static_cast<std::uint8_t>((inks_[i + c] * key + 127) / 255);
      }
      row[i + 3] = 255;
    }
  }

  bool& isProven_;
  bool hasSkipped_ = false;
  mutable Decompressor decompressor_;
  std::vector<std::uint8_t> inks_;
};

class JPEGSource final : public ImageSource {
 public:
  JPEGSource(const ImageInput& input, StopToken stop, std::int64_t maximumPlainBytes)
      : stop_(std::move(stop)), file_(input.stream()), maximumPlainBytes_(maximumPlainBytes) {
    Decompressor decompressor(file_.get(), stop_, maximumPlainBytes_);
    const auto& jpeg = decompressor.jpeg();
    if (jpeg.jpeg_color_space == JCS_UNKNOWN) throw ImageDecodeError("colours of an unknown kind");
    // Broken arithmetic code decodes to something nearly always, so no such image can be proved sound.
    if (jpeg.arith_code) throw ImageDecodeError("arithmetic coding");
    properties_.width = jpeg.image_width;
    properties_.height = jpeg.image_height;
    const bool inks = isInks(jpeg.jpeg_color_space);
    properties_.colorSpaceName = inks ? "Generic CMYK" : sRGBName;
    properties_.color.srgb = true;
    JPEGHeader header = readJPEGHeader(file_.get(), stop_);
    properties_.orientation = header.exif.orientation;
    if (header.exif.isAdobeRGB && !inks) {
      properties_.colorSpaceName = "Adobe RGB (1998)";
      properties_.color = {};
      properties_.isTagged = true;
      properties_.color.icc =
          color::makeRGBProfile("Adobe RGB (1998)", color::adobeRGB, color::adobeRGBGamma);
    }
    properties_.describeProfile(std::move(header.icc));
  }

  Container container() const override { return Container::jpeg; }
  std::size_t count() override { return 1; }
  ImageProperties properties(std::size_t) override { return properties_; }
  std::unique_ptr<RowReader> rows(std::size_t, std::int64_t minimumLongSide) override {
    return std::make_unique<JPEGRowReader>(file_.get(), stop_, minimumLongSide, maximumPlainBytes_,
                                           isProven_);
  }

  /// All entropy-coded data is read, but only one sample of each block is computed: what is missing or broken
  /// shows in the former.
  void verify(std::size_t) override {
    stop_.throwIfStopped();
    if (isProven_) return;
    readAll();
    isProven_ = true;
  }

 private:
  void readAll() {
    Decompressor decompressor(file_.get(), stop_, maximumPlainBytes_);
    auto& jpeg = decompressor.jpeg();
    jpeg.scale_num = 1;
    jpeg.scale_denom = 8;
    jpeg.out_color_space = jpeg.jpeg_color_space;
    jpeg.do_fancy_upsampling = FALSE;
    jpeg.dct_method = JDCT_IFAST;
    decompressor.guarded([&] { jpeg_start_decompress(&jpeg); });
    if (jpeg_has_multiple_scans(&jpeg)) return;  // all of them have just been read
    std::vector<std::uint8_t> row(static_cast<std::size_t>(jpeg.output_width) *
                                  static_cast<std::size_t>(jpeg.output_components));
    JSAMPROW target = row.data();
    while (jpeg.output_scanline < jpeg.output_height) {
      decompressor.throwIfStopped();
      decompressor.guarded([&] { jpeg_read_scanlines(&jpeg, &target, 1); });
    }
    decompressor.guarded([&] { jpeg_finish_decompress(&jpeg); });
  }

  StopToken stop_;
  ImageInput::Stream file_;
  std::int64_t maximumPlainBytes_;
  bool isProven_ = false;
  ImageProperties properties_;
};

}  // namespace

bool looksLikeJPEG(std::string_view head) {
  return head.starts_with("\xFF\xD8\xFF");
}

std::unique_ptr<ImageSource> openJPEG(const ImageInput& input, const StopToken& stop,
                                      std::int64_t maximumPlainBytes) {
  return std::make_unique<JPEGSource>(input, stop, maximumPlainBytes);
}

}  // namespace tidewell
