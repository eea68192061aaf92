// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/FormatPolicy.h"

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/EncoderPlans.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/JPEGMetadata.h"
#include "CompressionKit/image/PNGMetadata.h"

namespace tidewell {
namespace {

using Found = ImageFacts::Inspection;

template <bool (*compare)(const URL&, const URL&, const StopToken&)>
bool byFiles(const URL& original, const URL& candidate, const Found&, const StopToken& stop) {
  return compare(original, candidate, stop);
}

template <bool (*compare)(const URL&, ImageSource&, const StopToken&)>
bool byRows(const URL& original, const URL&, const Found& found, const StopToken& stop) {
  return compare(original, *found.unproven, stop);
}

constexpr FormatPolicy jpegPolicy{
    .plan = runJPEGPlan,
    .threshold = &CompressionEngine::Thresholds::quality,
    .judgesLargerOutputs = true,
    .preserveOrientation = JPEGMetadata::preserveOrientation,
    .samePixels = byFiles<ImageFacts::pixelsEqual>,
};

constexpr FormatPolicy pngPolicy{
    .plan = runPNGPlan,
    .threshold = &CompressionEngine::Thresholds::pngQuality,
    .preserveOrientation = PNGMetadata::preserveOrientation,
    .mayBeConvertedToSRGB = true,
    .proof = ImageFacts::Proof::owed,
    .samePixels =
        byRows<ImageFacts::samplesEqual>,  // at the depth of the files, which is more than what is shown
    .alphaSurvives = byRows<ImageFacts::quantizedAlphaWithin>,
};

constexpr FormatPolicy gifPolicy{
    .plan = runGIFPlan,
    .threshold = &CompressionEngine::Thresholds::gifQuality,
    .isAnimation = true,
    .saysItsColors = false,
};

}  // namespace

const FormatPolicy& formatPolicy(ImageKind kind) {
  switch (ImageKind::Value(kind)) {
    case ImageKind::jpeg:
      return jpegPolicy;
    case ImageKind::png:
      return pngPolicy;
    case ImageKind::gif:
      return gifPolicy;
    case ImageKind::heic:
      break;  // converted, and its PNG recompressed
  }
  throw CompressionError::formatMismatch();
}

}  // namespace tidewell
