// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The names of the original's frames as PNG files in the working directory's "gif-reference", in frame
/// order. Those `wanted` exist afterwards; each is exported once per run. Throws `CompressionError`,
/// `FileError`, `Interrupted`.
std::vector<URL> gifReferenceFrames(const CompressionRun& run, const std::vector<std::size_t>& wanted);

/// The worst perceptual score among the output's frames, at most 100. `original` is any animation that shows
/// the original's pixels. Nothing when the number of frames or any alpha value differs or a frame scores
/// below `minimum`. The first frame in their order that is such, or cannot be exported or measured, ends the
/// scoring. Frames are exported into the directory; those of the original stay there, as `gifReferenceFrames`
/// finds them. Throws `CompressionError`, `FileError`, `Interrupted`.
std::optional<double> gifQualityScore(const URL& original, const AnimationFile& output,
                                      const ToolRunner& tools, const URL& directory, double minimum);

}  // namespace tidewell
