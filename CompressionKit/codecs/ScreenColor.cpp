// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/ScreenColor.h"

#include <lcms2.h>

#include <algorithm>
#include <optional>
#include <string>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/Premultiply.h"

namespace tidewell {
namespace {

/// What code points of the curve of sRGB or of a pure power mean; empty for all others.
std::string profileOfCodePoints(const std::string& points) {
  constexpr color::Chromaticities bt2020 = {0.3127, 0.3290, 0.708, 0.292, 0.170, 0.797, 0.131, 0.046};
  constexpr char sRGBCurve = 13, bt709Curve = 1, gamma22 = 4, gamma28 = 5, linear = 8;
  color::Chromaticities primaries = color::bt709;
  if (points[0] == 9) primaries = bt2020;
  if (points[0] == 12) primaries = color::displayP3;
  switch (points[1]) {
    // Graded on screens whose curve is nearer to that of sRGB than to the camera's.
    case bt709Curve:
    case sRGBCurve:
      return color::makeRGBProfile("Code points", primaries);
    case gamma22:
      return color::makeRGBProfile("Code points", primaries, 2.2);
    case gamma28:
      return color::makeRGBProfile("Code points", primaries, 2.8);
    case linear:
      return color::makeRGBProfile("Code points", primaries, 1.0);
    default:
      return {};
  }
}

/// Empty for sRGB and what nothing is known of.
std::string profileOf(const ColorTag& tag) {
  if (!tag.icc.empty()) return color::isRGBProfile(tag.icc) ? tag.icc : std::string();
  if (tag.srgb) return {};
  if (tag.codePoints.size() == 4) return profileOfCodePoints(tag.codePoints);
  if (!tag.gamma && !tag.chromaticity) return {};
  const auto gamma = tag.gamma ? std::optional(1 / *tag.gamma) : std::nullopt;
  return color::makeRGBProfile("Calibrated", tag.chromaticity.value_or(color::bt709), gamma);
}

}  // namespace

struct ScreenColor::Transform {
  Transform(const Transform&) = delete;
  Transform& operator=(const Transform&) = delete;
  explicit Transform(const std::string& icc) {
    const cmsHPROFILE source = cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size()));
    const cmsHPROFILE target = cmsCreate_sRGBProfile();
    if (source && target) {
      // Without its cache, several threads may use it.
      handle = cmsCreateTransform(source, TYPE_RGBA_8, target, TYPE_RGBA_8, INTENT_PERCEPTUAL,
                                  cmsFLAGS_NOCACHE | cmsFLAGS_COPY_ALPHA);
    }
    if (source) cmsCloseProfile(source);
    if (target) cmsCloseProfile(target);
  }
  ~Transform() {
    if (handle) cmsDeleteTransform(handle);
  }
  cmsHTRANSFORM handle = nullptr;
};

ScreenColor::ScreenColor(const ColorTag& color) {
  const std::string icc = profileOf(color);
  if (icc.empty() || color::isSRGB(icc)) return;
  transform_ = std::make_unique<Transform>(icc);
  if (!transform_->handle) transform_.reset();
}

ScreenColor::~ScreenColor() = default;

void ScreenColor::convert(Bitmap& bitmap) const {
  bitmap.color = {};
  bitmap.color.srgb = true;
  if (!transform_) return;
  for (std::int64_t y = 0; y < bitmap.height; ++y) {
    const auto row = bitmap.row(y);
    if (bitmap.hasAlpha) {
      for (std::size_t i = 0; i < row.size(); i += 4) {
        for (std::size_t c = i; c < i + 3; ++c) row[c] = unpremultiplied(row[c], row[i + 3]);
      }
    }
    cmsDoTransform(transform_->handle, row.data(), row.data(), static_cast<cmsUInt32Number>(bitmap.width));
    if (bitmap.hasAlpha) premultiply(row);
  }
}

}  // namespace tidewell
