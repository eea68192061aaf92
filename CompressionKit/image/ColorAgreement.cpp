// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ColorAgreement.h"

#include "CompressionKit/codecs/ColorProfile.h"
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

}  // namespace tidewell
