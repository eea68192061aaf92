// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/Exif.h"

#include "CompressionKit/codecs/TIFFDirectories.h"

namespace tidewell {
namespace {

constexpr std::uint32_t orientationTag = 0x0112, exifDirectoryTag = 0x8769, colorSpaceTag = 0xA001,
                        interoperabilityDirectoryTag = 0xA005, interoperabilityIndexTag = 1;
constexpr std::uint32_t adobeRGB = 2, uncalibrated = 0xFFFF;  // of the colour space; 1 is sRGB

}  // namespace

Exif readExif(std::string_view tiff) {
  const TIFFDirectories directories(tiff);
  Exif exif;
  if (!directories.isSound()) return exif;
  const auto first = directories.first();
  if (const auto value = directories.integer(first, orientationTag); value >= 1U && value <= 8U) {
    exif.orientation = static_cast<int>(*value);
  }
  const auto camera = directories.integer(first, exifDirectoryTag);
  const auto space = directories.integer(camera, colorSpaceTag);
  const auto index =
      directories.entry(directories.integer(camera, interoperabilityDirectoryTag), interoperabilityIndexTag);
  exif.isAdobeRGB =
      space == adobeRGB || (space == uncalibrated && index && directories.bytes(index->value(), 3) == "R03");
  return exif;
}

}  // namespace tidewell
