#include "CompressionKit/codecs/Exif.h"

namespace tidewell {
namespace {

constexpr std::uint32_t orientationTag = 0x0112, exifDirectoryTag = 0x8769, colorSpaceTag = 0xA001,
                        interoperabilityDirectoryTag = 0xA005, interoperabilityIndexTag = 1;
constexpr std::uint32_t shortType = 3, longType = 4;
constexpr std::uint32_t adobeRGB = 2, uncalibrated = 0xFFFF;  // of the colour space; 1 is sRGB

class Directories {
 public:
  explicit Directories(std::string_view tiff) : tiff_(tiff), little_(tiff.starts_with("II")) {}

  bool isSound() const { return (little_ || tiff_.starts_with("MM")) && number(2, 2) == 42U; }
  std::optional<std::uint32_t> first() const { return number(4, 4); }

  /// The position of the four bytes that hold the value of a tag, or where it is.
  std::optional<std::size_t> value(std::optional<std::uint32_t> directory, std::uint32_t tag) const {
    if (!directory) return std::nullopt;
    const auto entries = number(*directory, 2);
    for (std::size_t i = 0; entries && i < *entries; ++i) {
      const std::size_t entry = *directory + 2 + 12 * i;
      if (!number(entry + 8, 4)) break;  // the directory runs past the end
      if (number(entry, 2) == tag) return entry + 8;
    }
    return std::nullopt;
  }

  std::optional<std::uint32_t> integer(std::optional<std::uint32_t> directory, std::uint32_t tag) const {
    const auto position = value(directory, tag);
    if (!position || number(*position - 4, 4) == 0U) return std::nullopt;
    const auto type = number(*position - 6, 2);
    if (type != shortType && type != longType) return std::nullopt;
    return number(*position, type == shortType ? 2 : 4);
  }

  std::string_view bytes(std::size_t position, std::size_t size) const {
    return tiff_.substr(position, size);
  }

 private:
  std::optional<std::uint32_t> number(std::size_t position, std::size_t size) const {
    if (position > tiff_.size() || tiff_.size() - position < size) return std::nullopt;
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      value = value << 8 | static_cast<unsigned char>(tiff_[position + (little_ ? size - 1 - i : i)]);
    }
    return value;
  }

  std::string_view tiff_;
  bool little_;
};

}  // namespace

Exif readExif(std::string_view tiff) {
  const Directories directories(tiff);
  Exif exif;
  if (!directories.isSound()) return exif;
  const auto first = directories.first();
  if (const auto value = directories.integer(first, orientationTag); value >= 1U && value <= 8U) {
    exif.orientation = static_cast<int>(*value);
  }
  const auto camera = directories.integer(first, exifDirectoryTag);
  const auto space = directories.integer(camera, colorSpaceTag);
  const auto index =
      directories.value(directories.integer(camera, interoperabilityDirectoryTag), interoperabilityIndexTag);
  exif.isAdobeRGB =
      space == adobeRGB || (space == uncalibrated && index && directories.bytes(*index, 3) == "R03");
  return exif;
}

}  // namespace tidewell
