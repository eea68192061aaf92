#include "CompressionKit/codecs/ImageProperties.h"

#include "CompressionKit/codecs/ColorProfile.h"

namespace tidewell {

void ImageProperties::describeProfile(std::string icc) {
  const auto description = color::profileDescription(icc);
  if (!description) return;
  profileName = description;
  color = {};
  if (color::isRGBProfile(icc)) {
    color.icc = std::move(icc);
  } else {
    color.icc = color::rgbProfileOfGrey(icc);
    color.srgb = color.icc.empty();
  }
}

}  // namespace tidewell
