// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/JPEGDecoder.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/JPEGDecompressor.h"
#include "CompressionKit/codecs/JPEGHeader.h"
#include "CompressionKit/codecs/JPEGPart.h"
#include "CompressionKit/codecs/SparseCoefficients.h"

namespace tidewell {
namespace {

bool isInks(J_COLOR_SPACE space) {
  return space == JCS_CMYK || space == JCS_YCCK;
}

/// Rows as `RowReader` delivers them, of a decompression that has been told of colours and size.
class PixelRows {
 public:
  explicit PixelRows(JPEGDecompressor& decompressor) : decompressor_(decompressor) {
    auto& jpeg = decompressor_.jpeg();
    decompressor_.guarded([&] {
      jpeg_start_decompress(&jpeg);
      if (jpeg.buffered_image != FALSE) jpeg_start_output(&jpeg, 1);
    });
    if (isInks(jpeg.jpeg_color_space)) inks_.resize(static_cast<std::size_t>(jpeg.output_width) * 4);
  }

  void read(std::span<std::uint8_t> row) {
    auto& jpeg = decompressor_.jpeg();
    decompressor_.throwIfStopped();
    if (jpeg.output_scanline >= jpeg.output_height) throw ImageDecodeError("read past the last row");
    JSAMPROW target = inks_.empty() ? row.data() : inks_.data();
    decompressor_.guarded([&] { jpeg_read_scanlines(&jpeg, &target, 1); });
    if (!inks_.empty()) convertInks(row);
  }

 private:
  /// Adobe's files, which are nearly all of this kind, hold the inks inverted; viewers take all others so
  /// too.
  void convertInks(std::span<std::uint8_t> row) const {
    for (std::size_t i = 0; i < inks_.size(); i += 4) {
      const unsigned key = inks_[i + 3];
      for (std::size_t c = 0; c < 3; ++c) {
        row[i + c] = static_cast<std::uint8_t>((inks_[i + c] * key + 127) / 255);
      }
      row[i + 3] = 255;
    }
  }

  JPEGDecompressor& decompressor_;
  std::vector<std::uint8_t> inks_;
};

/// Arrays for an image of several scans whose coefficients would be too many for libjpeg's own, else null.
std::unique_ptr<BlockArrays> arraysFor(jpeg_decompress_struct& jpeg, std::int64_t maximumPlainBytes) {
  const std::int64_t bytes = SparseCoefficients::blockCount(jpeg) * std::int64_t{sizeof(JBLOCK)};
  if (!jpeg_has_multiple_scans(&jpeg) || bytes <= maximumPlainBytes) return nullptr;
  return std::make_unique<SparseCoefficients>(jpeg);
}

/// How an image is to be read.
struct Wish {
  std::int64_t minimumLongSide = 0;
  std::int64_t maximumPlainBytes = 0;
  Rectangle kept = {};
};

class JPEGRowReader final : public RowReader {
 public:
  /// `isProven` becomes true when all of the image has been seen to be sound.
  JPEGRowReader(std::FILE* file, const StopToken& stop, const Wish& wish, bool& isProven)
      : isProven_(isProven), stop_(stop), decompressor_(file, stop), kept_(wish.kept) {
    prepare(wish);
    rows_.emplace(decompressor_);
    if (jpeg_has_multiple_scans(&decompressor_.jpeg())) isProven_ = true;  // all of them have just been read
  }

  std::int64_t width() const override { return decompressor_.jpeg().output_width; }
  std::int64_t height() const override { return decompressor_.jpeg().output_height; }

  void read(std::span<std::uint8_t> row) override {
    rows_->read(row);
    if (isAtEnd() && !hasSkipped_ && !isProven_) finish();
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

  bool readKept(std::span<std::uint8_t> pixels) override {
    const auto& jpeg = decompressor_.jpeg();
    // After an error behind the last row, libjpeg's state may be that of what is there.
    if (!part_ || !isProven_ || hasSkipped_ || !isAtEnd() || !part_->isComplete(jpeg)) return false;
    JPEGDecompressor decompressor(*part_, jpeg, stop_);
    PixelRows rows(decompressor);
    const Rectangle& area = part_->area();
    std::vector<std::uint8_t> row(static_cast<std::size_t>(area.width) * 4);
    const auto left = static_cast<std::size_t>(kept_.x - area.x) * 4;
    const auto bytes = static_cast<std::size_t>(kept_.width) * 4;
    for (std::int64_t y = area.y; y < kept_.y + kept_.height; ++y) {
      rows.read(row);
      if (y < kept_.y) continue;
      std::memcpy(pixels.data() + static_cast<std::size_t>(y - kept_.y) * bytes, row.data() + left, bytes);
    }
    return true;
  }

 private:
  bool isAtEnd() const {
    const auto& jpeg = decompressor_.jpeg();
    return jpeg.output_scanline == jpeg.output_height;
  }

  void prepare(const Wish& wish) {
    auto& jpeg = decompressor_.jpeg();
    jpeg.out_color_space = isInks(jpeg.jpeg_color_space) ? JCS_CMYK : JCS_EXT_RGBA;
    jpeg.scale_denom = 8;
    jpeg.scale_num = 8;
    if (wish.minimumLongSide > 0) {
      const std::int64_t longSide = std::max(jpeg.image_width, jpeg.image_height);
      // Halves only: for the sizes in between libjpeg-turbo has no vector code, and takes twice as long.
      while (jpeg.scale_num > 1 && longSide * (jpeg.scale_num / 2) / 8 >= wish.minimumLongSide)
        jpeg.scale_num /= 2;
    }
    const bool keeps = mayKeep();
    auto arrays = arraysFor(jpeg, keeps ? 0 : wish.maximumPlainBytes);
    if (keeps) {
      if (!arrays) {
        arrays = std::make_unique<PassingBlocks>(jpeg);
        jpeg.buffered_image = TRUE;  // else there are no arrays
      }
      arrays->copyTo(part_.emplace(jpeg, kept_));
    }
    decompressor_.setArrays(std::move(arrays));
  }

  /// Where an image that is not progressive shrinks to a pixel for each block, libjpeg keeps nothing else of
  /// the block.
  bool mayKeep() const {
    const auto& jpeg = decompressor_.jpeg();
    const unsigned smallest = jpeg.progressive_mode != FALSE ? 1 : 2;
    return kept_.width > 0 && kept_.height > 0 && jpeg.scale_num < 8 && jpeg.scale_num >= smallest &&
           JPEGPart::isPossible(jpeg);
  }

  /// What stands behind the last row is no matter to whoever reads rows: `verify` will say what is wrong.
  void finish() {
    auto& jpeg = decompressor_.jpeg();
    try {
      decompressor_.guarded([&] {
        if (jpeg.buffered_image == FALSE) {
          jpeg_finish_decompress(&jpeg);
        } else {
          // What a part is made of is needed yet.
          jpeg_finish_output(&jpeg);
          while (!jpeg_input_complete(&jpeg)) jpeg_consume_input(&jpeg);
        }
      });
      isProven_ = true;
    } catch (const ImageDecodeError&) {
    }
  }

  bool& isProven_;
  bool hasSkipped_ = false;
  StopToken stop_;
  std::optional<JPEGPart> part_;
  mutable JPEGDecompressor decompressor_;
  Rectangle kept_;
  std::optional<PixelRows> rows_;
};

class JPEGSource final : public ImageSource {
 public:
  JPEGSource(const ImageInput& input, StopToken stop, std::int64_t maximumPlainBytes)
      : stop_(std::move(stop)), file_(input.stream()), maximumPlainBytes_(maximumPlainBytes) {
    JPEGDecompressor decompressor(file_.get(), stop_);
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
    return rowsKeeping({}, minimumLongSide, {});
  }
  std::unique_ptr<RowReader> rowsKeeping(std::size_t, std::int64_t minimumLongSide,
                                         const Rectangle& part) override {
    const Wish wish{
        .minimumLongSide = minimumLongSide, .maximumPlainBytes = maximumPlainBytes_, .kept = part};
    return std::make_unique<JPEGRowReader>(file_.get(), stop_, wish, isProven_);
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
    JPEGDecompressor decompressor(file_.get(), stop_);
    auto& jpeg = decompressor.jpeg();
    decompressor.setArrays(arraysFor(jpeg, maximumPlainBytes_));
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
