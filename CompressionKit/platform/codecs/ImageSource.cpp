#include "CompressionKit/platform/codecs/ImageSource.h"

#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/codecs/ColorProfile.h"
#include "CompressionKit/platform/codecs/Decoders.h"
#include "CompressionKit/platform/codecs/HEICDecoder.h"
#include "CompressionKit/platform/codecs/HEIFBoxes.h"

namespace tidewell {
namespace {

struct Format {
  bool (*matches)(std::string_view head);
  std::unique_ptr<ImageSource> (*open)(const URL& url);
};

constexpr Format formats[] = {
    {looksLikeJPEG, openJPEG},
    {looksLikePNG, openPNG},
    {looksLikeGIF, openGIF},
    {[](std::string_view head) { return heif::typeIdentifier(head).has_value(); },
     [](const URL& url) -> std::unique_ptr<ImageSource> { return std::make_unique<HEICSource>(url); }},
};

}  // namespace

void RowReader::skip(std::int64_t count) {
  std::vector<std::uint8_t> row(static_cast<std::size_t>(width()) * 4);
  while (count-- > 0) read(row);
}

std::unique_ptr<ImageSource> ImageSource::open(const URL& url) {
  const std::string head = files::read(url, heif::headBytes);
  for (const Format& format : formats) {
    if (format.matches(head)) return format.open(url);
  }
  throw ImageDecodeError("no known format");
}

void ImageSource::verify(std::size_t index) {
  const auto reader = rows(index);
  reader->skip(reader->height());
}

File openFile(const URL& url) {
  Descriptor descriptor = files::openForReading(url);
  File file(fdopen(descriptor.get(), "rb"));
  if (!file) throw FileError("打开", url.path(), errno);
  descriptor.release();
  return file;
}

void describeProfile(ImageProperties& properties, std::string icc) {
  const auto description = color::profileDescription(icc);
  if (!description) return;
  properties.profileName = description;
  properties.color = {};
  if (color::isRGBProfile(icc)) {
    properties.color.icc = std::move(icc);
  } else {
    properties.color.icc = color::rgbProfileOfGrey(icc);
    properties.color.srgb = properties.color.icc.empty();
  }
}

}  // namespace tidewell
