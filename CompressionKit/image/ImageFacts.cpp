// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ImageFacts.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/image/JPEGMetadata.h"
#include "CompressionKit/image/PNGMetadata.h"

namespace tidewell {
namespace {

constexpr double delayTolerance = 1e-6;
constexpr std::int64_t overviewSide = 2048;
constexpr std::int64_t detailSide = 768;

std::string normalizedProfile(const std::string& name) {
  std::string plain = asciiLowercased(name);
  std::erase(plain, ' ');
  if (plain.find("srgb") != std::string::npos) return "srgb";
  if (plain.find("displayp3") != std::string::npos) return "display-p3";
  return name;
}

bool delaysAgree(const std::vector<double>& a, const std::vector<double>& b) {
  return std::ranges::equal(a, b, [](double x, double y) { return std::abs(x - y) <= delayTolerance; });
}

/// A candidate that says nothing of its colours proves no conversion to sRGB: pngquant without a colour
/// engine converts by a gamma, but just leaves out profiles and primaries.
bool saysSRGB(const ImageFacts& candidate, const ImageFacts& original) {
  return candidate.profileName != untaggedName ||
         (original.profileName && original.profileName->starts_with(gammaNamePrefix));
}

bool profilesAgree(const ImageFacts& original, const ImageFacts& candidate, bool allowSRGBConversion) {
  if (original.profileName && !candidate.profileName) return false;
  if (!original.profileName && !candidate.profileName) return true;
  const std::string after = normalizedProfile(*candidate.profileName);
  if (original.profileName && normalizedProfile(*original.profileName) == after) return true;
  return allowSRGBConversion && original.kind == ImageKind::png && after == "srgb" &&
         saysSRGB(candidate, original);
}

/// Views are made of the rows that prove the image to be whole.
ImageFacts::Inspection inspectSource(ImageSource& source, ImageKind kind, const URL& url,
                                     ImageFacts::Views wish, ImageFacts::Proof proof) {
  if (source.count() < 1) throw CompressionError::invalidImage();
  if (!kind.accepts(source.container())) throw CompressionError::formatMismatch();
  ImageFacts::Inspection inspection{.facts = {}, .properties = source.properties(0)};
  ImageFacts& facts = inspection.facts;
  const ImageProperties& properties = inspection.properties;
  facts.kind = kind;
  facts.width = properties.width;
  facts.height = properties.height;
  if (wish == ImageFacts::Views::wanted && facts.isShownInViews()) {
    inspection.views = views::overviewAndDetail(source, 0, overviewSide, detailSide);
  } else if (proof == ImageFacts::Proof::made) {
    source.verify(0);
  }

  facts.hasJPEGMultiPictureData = kind == ImageKind::jpeg && JPEGMetadata::hasMultiplePictures(url);
  facts.frameCount = static_cast<std::int64_t>(source.count());
  facts.gifLoopCount = properties.loopCount;
  if (kind == ImageKind::gif) {
    for (std::size_t i = 0; i < source.count(); ++i) {
      facts.gifFrameDelays.push_back(source.properties(i).delay.value_or(0));
    }
  }
  facts.hasAlpha = properties.hasAlpha;
  facts.profileName = properties.profileName ? properties.profileName : properties.colorSpaceName;
  facts.orientation = properties.orientation.value_or(1);
  return inspection;
}

}  // namespace

bool ImageFacts::isShownInViews() const {
  return kind != ImageKind::gif && height > 0 && width > maximumWholePixels / height;
}

ImageFacts ImageFacts::inspect(const URL& url, const StopToken& stop) {
  return inspection(url, Views::unwanted, stop).facts;
}

ImageFacts::Inspection ImageFacts::inspection(const URL& url, Views wish, const StopToken& stop,
                                              Proof proof) {
  const auto kind = ImageKind::from(url);
  if (kind == ImageKind::png) PNGMetadata::validateStatic(url, stop);
  if (!kind) throw CompressionError::invalidImage();
  if (kind == ImageKind::heic) {
    return {.facts = HEICDecoding(url, HEICDecoding::Purpose::inspect, stop).facts()};
  }
  return decoding([&] {
    const std::shared_ptr<ImageSource> source = ImageSource::open(url, stop);
    auto found = inspectSource(*source, *kind, url, wish, proof);
    if (proof == Proof::owed) found.unproven = source;
    found.animation = std::dynamic_pointer_cast<GIFAnimation>(source);
    return found;
  });
}

void ImageFacts::Inspection::prove() const {
  if (unproven) decoding([&] { unproven->verify(0); });
}

bool ImageFacts::compatible(const ImageFacts& candidate, bool allowSRGBConversion) const {
  if (kind != candidate.kind || width != candidate.width || height != candidate.height ||
      frameCount != candidate.frameCount) {
    return false;
  }
  if (kind == ImageKind::gif) {
    return gifLoopCount == candidate.gifLoopCount && delaysAgree(gifFrameDelays, candidate.gifFrameDelays);
  }
  return profilesAgree(*this, candidate, allowSRGBConversion) && orientation == candidate.orientation;
}

}  // namespace tidewell
