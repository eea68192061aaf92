// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/ImageSource.h"

#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/codecs/PNGDecoder.h"
#include "CompressionKit/codecs/Premultiply.h"

namespace tidewell {
namespace {

struct Format {
  /// By the file's first bytes, `heif::headBytes` of them; nothing when it is of another format.
  std::optional<Container> (*container)(std::string_view head);
  std::unique_ptr<ImageSource> (*open)(const ImageInput& input, const StopToken& stop);
};

/// Says what the file is, and that somebody else decodes it.
class HEIFFile final : public ImageSource {
 public:
  explicit HEIFFile(Container container) : container_(container) {}
  Container container() const override { return container_; }
  std::size_t count() override { return 1; }
  ImageProperties properties(std::size_t) override { throw refusal(); }
  std::unique_ptr<RowReader> rows(std::size_t, std::int64_t) override { throw refusal(); }

 private:
  static ImageDecodeError refusal() { return ImageDecodeError("a HEIF file"); }
  Container container_;
};

template <Container container, bool (*matches)(std::string_view head)>
std::optional<Container> containerIf(std::string_view head) {
  return matches(head) ? std::optional(container) : std::nullopt;
}

/// A new format is a file beside this one and a line here.
constexpr Format formats[] = {
    {containerIf<Container::jpeg, looksLikeJPEG>,
     [](const ImageInput& input, const StopToken& stop) { return openJPEG(input, stop); }},
    {containerIf<Container::png, looksLikePNG>, openPNG},
    {containerIf<Container::gif, looksLikeGIF>, openGIF},
    {heif::container,
     [](const ImageInput& input, const StopToken&) -> std::unique_ptr<ImageSource> {
       return std::make_unique<HEIFFile>(*heif::container(input.head(heif::headBytes)));
     }},
};

/// Pixels that are opaque or nothing are the same straight and premultiplied.
class WidenedRows final : public DeepRowReader {
 public:
  explicit WidenedRows(std::unique_ptr<RowReader> rows)
      : rows_(std::move(rows)), row_(static_cast<std::size_t>(rows_->width()) * 4) {}
  std::int64_t width() const override { return rows_->width(); }
  std::int64_t height() const override { return rows_->height(); }
  void read(std::span<std::uint16_t> row) override {
    rows_->read(row_);
    widen(row_, row);
  }

 private:
  std::unique_ptr<RowReader> rows_;
  std::vector<std::uint8_t> row_;
};

}  // namespace

void RowReader::skip(std::int64_t count) {
  std::vector<std::uint8_t> row(static_cast<std::size_t>(width()) * 4);
  while (count-- > 0) read(row);
}

bool RowReader::readKept(std::span<std::uint8_t>) {
  return false;
}

std::unique_ptr<ImageSource> ImageSource::open(const URL& url, const StopToken& stop) {
  return open(ImageInput(url), stop);
}

std::unique_ptr<ImageSource> ImageSource::open(const ImageInput& input, const StopToken& stop) {
  stop.throwIfStopped();
  const std::string head = input.head(heif::headBytes);
  for (const Format& format : formats) {
    if (format.container(head)) return format.open(input, stop);
  }
  throw ImageDecodeError("no known format");
}

std::optional<Container> ImageSource::containerOf(const ImageInput& input) {
  const std::string head = input.head(heif::headBytes);
  for (const Format& format : formats) {
    if (const auto container = format.container(head)) return container;
  }
  return std::nullopt;
}

std::unique_ptr<RowReader> ImageSource::rowsKeeping(std::size_t index, std::int64_t minimumLongSide,
                                                    const Rectangle&) {
  return rows(index, minimumLongSide);
}

std::unique_ptr<DeepRowReader> ImageSource::deepRows(std::size_t index) {
  return std::make_unique<WidenedRows>(rows(index));
}

void ImageSource::verify(std::size_t index) {
  const auto reader = rows(index);
  reader->skip(reader->height());
}

}  // namespace tidewell
