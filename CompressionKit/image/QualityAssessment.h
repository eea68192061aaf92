#pragma once

#include <string_view>

#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/tools/ToolRunner.h"

/// The perceptual score of a candidate, measured by ssimulacra2 (higher is closer, 100 is identical).
namespace tidewell::QualityAssessment {

/// `facts` are the original's: above 8,000,000 pixels an overview and a centre crop are measured instead of
/// the whole images, and the worse score counts. Throws `CompressionError`, `FileError`, `Interrupted`.
double score(const URL& original, const URL& candidate, const ImageFacts& facts, const ToolRunner& tools);

/// One run of the metric on two files of any size, at most 180 seconds.
double measure(const URL& original, const URL& candidate, const ToolRunner& tools);

/// The metric's output as a finite number; throws `CompressionError::toolFailed` for anything else.
double parsedScore(std::string_view output);

}  // namespace tidewell::QualityAssessment
