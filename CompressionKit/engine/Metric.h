// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string_view>

#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/tools/ToolRunner.h"

/// The perceptual score of a candidate: higher is closer, 100 is identical, there is no lowest one. All that
/// is known of the metric's program is known here.
namespace tidewell::QualityAssessment {

inline constexpr std::string_view metricTool = "ssimulacra2";
inline constexpr double identical = 100;

/// The program is there. What measures throws `CompressionError::toolMissing` without it.
bool isAvailable(const ToolRunner& tools);

/// One run of the metric on two files of any size, at most 180 seconds. Throws `CompressionError`,
/// `FileError`, `Interrupted`.
double measure(const URL& original, const URL& candidate, const ToolRunner& tools);

/// Two reduced views of one image, as files.
struct ViewFiles {
  URL overview;
  URL detail;
};

/// Writes the views of an image above `ImageFacts::maximumWholePixels` into an existing directory, under
/// names that end in `number`. Throws `CompressionError`, `FileError`.
ViewFiles writeViews(const views::Pair& views, const URL& directory, std::string_view number);

/// The worse score of the two views. They are measured side by side, the overview from a moment before; its
/// error counts first, and ends the other. The candidate's views are written into `directory` while that
/// takes. Throws as `measure`.
double score(const ViewFiles& original, const views::Pair& candidate, const URL& directory,
             const ToolRunner& tools);

/// The metric's output as a finite number; throws `CompressionError::toolFailed` for anything else.
double parsedScore(std::string_view output);

}  // namespace tidewell::QualityAssessment
