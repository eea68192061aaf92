// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ColorAgreement.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/PNGWriter.h"

namespace tidewell {
namespace {

/// Tools that convert read profiles by libpng, and know none of grey samples.
bool canBeConverted(const ImageProperties& original) {
  return !original.hasGreyProfile && isAllowedInPNG(original.color.icc);
}

}  // namespace

bool colorsAgree(const ImageProperties& original, const ImageProperties& candidate, bool mayBeConverted) {
  if (original.codePoints != candidate.codePoints) return false;
  if (!original.codePoints.empty() || !original.profileName) return true;
  const std::string& icc = original.color.icc;
  if (candidate.profileName) {
    return candidate.color.icc == icc ||
           (color::isSRGB(candidate.color.icc) && (mayBeConverted || color::isSRGB(icc)));
  }
  return (candidate.isTagged && mayBeConverted && canBeConverted(original)) || color::isSRGB(icc);
}

bool needsMoreThanSRGB(const URL& png, const ImageProperties& properties, const StopToken& stop) {
  const std::string& icc = properties.color.icc;
  if (!properties.codePoints.empty() || icc.empty() || color::isSRGB(icc)) return false;
  constexpr std::int64_t looked = 1'000'000, portion = 1000;
  const auto source = ImageSource::open(png, stop);
  const auto rows = source->deepRows(0);
  const auto step = static_cast<std::int64_t>(
      std::ceil(std::sqrt(static_cast<double>(rows->width() * rows->height()) / looked)));
  std::vector<std::uint16_t> row(static_cast<std::size_t>(rows->width()) * 4);
  std::vector<float> pixels;
  for (std::int64_t y = 0; y < rows->height(); ++y) {
    rows->read(row);
    if (y % step != 0) continue;
    for (std::size_t i = 0; i < row.size(); i += static_cast<std::size_t>(step) * 4) {
      if (row[i + 3] == 0) continue;
      for (std::size_t c = 0; c < 3; ++c) pixels.push_back(static_cast<float>(row[i + c]) / 65535);
    }
  }
  const std::size_t visible = pixels.size() / 3;
  return color::countOutsideSRGB(icc, pixels) > visible / portion;
}

}  // namespace tidewell
