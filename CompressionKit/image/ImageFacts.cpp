#include "CompressionKit/image/ImageFacts.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/image/JPEGMetadata.h"
#include "CompressionKit/image/PNGMetadata.h"

namespace tidewell {
namespace {

constexpr double delayTolerance = 1e-6;

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

ImageFacts inspectSource(ImageSource& source, ImageKind kind, const URL& url) {
  if (source.count() < 1) throw CompressionError::invalidImage();
  if (!kind.accepts(source.container())) throw CompressionError::formatMismatch();
  source.verify(0);

  ImageFacts facts;
  facts.kind = kind;
  facts.hasJPEGMultiPictureData = kind == ImageKind::jpeg && JPEGMetadata::hasMultiplePictures(url);
  const ImageProperties properties = source.properties(0);
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
  facts.width = properties.width;
  facts.height = properties.height;
  return facts;
}

}  // namespace

ImageFacts ImageFacts::inspect(const URL& url, const StopToken& stop) {
  const auto kind = ImageKind::from(url);
  if (kind == ImageKind::png) PNGMetadata::validateStatic(url, stop);
  if (!kind) throw CompressionError::invalidImage();
  if (kind == ImageKind::heic) return HEICDecoding(url, HEICDecoding::Purpose::inspect, stop).facts();
  return decoding([&] { return inspectSource(*ImageSource::open(url, stop), *kind, url); });
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
