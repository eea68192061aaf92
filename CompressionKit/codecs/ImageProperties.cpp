// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/ImageProperties.h"

#include "CompressionKit/codecs/ColorProfile.h"

namespace tidewell {

void ImageProperties::describeProfile(std::string icc) {
  const auto description = color::profileDescription(icc);
  if (!description) return;
  profileName = description;
  isTagged = true;
  color = {};
  if (color::isRGBProfile(icc)) {
    color.icc = std::move(icc);
  } else {
    color.icc = color::rgbProfileOfGrey(icc);
    hasGreyProfile = !color.icc.empty();
    color.srgb = color.icc.empty();
  }
}

}  // namespace tidewell
