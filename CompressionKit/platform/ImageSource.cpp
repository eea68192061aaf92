#include "CompressionKit/platform/ImageSource.h"

#include <vector>

#include "CompressionKit/platform/ColorProfile.h"
#include "CompressionKit/platform/Decoders.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/HEICDecoder.h"
#include "CompressionKit/platform/HEIFBoxes.h"

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

std::optional<int> exifOrientation(std::string_view tiff) {
  const bool little = tiff.starts_with("II");
  if (!little && !tiff.starts_with("MM")) return std::nullopt;
  const auto number = [&](std::size_t position, std::size_t size) -> std::optional<std::uint32_t> {
    if (position > tiff.size() || tiff.size() - position < size) return std::nullopt;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      value = value << 8 | static_cast<unsigned char>(tiff[position + (little ? size - 1 - i : i)]);
    }
    return value;
  };
  constexpr std::uint32_t orientationTag = 0x0112, shortType = 3, longType = 4;
  const auto directory = number(4, 4);
  if (number(2, 2) != 42U || !directory) return std::nullopt;
  const auto entries = number(*directory, 2);
  for (std::size_t i = 0; entries && i < *entries; ++i) {
    const std::size_t entry = *directory + 2 + 12 * i;
    const auto tag = number(entry, 2), type = number(entry + 2, 2), count = number(entry + 4, 4);
    if (!tag || !type || !count) return std::nullopt;  // the directory runs past the end
    if (*tag != orientationTag) continue;
    if (*count < 1 || (*type != shortType && *type != longType)) return std::nullopt;
    const auto value = number(entry + 8, *type == shortType ? 2 : 4);
    if (!value || *value < 1 || *value > 8) return std::nullopt;
    return static_cast<int>(*value);
  }
  return std::nullopt;
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
