#pragma once

#include <optional>
#include <vector>

#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The original's frames as PNG files in the working directory's "gif-reference", in frame order; exported
/// once per run. Throws what `ImageFacts::exportGIFFrames` throws.
std::vector<URL> gifReferenceFrames(const CompressionRun& run);

/// The worst perceptual score among the output's frames, at most 100. Nothing when the number of frames or
/// any alpha value differs or a frame scores below the engine's threshold; the first such frame ends the
/// scoring. Throws `CompressionError`, `FileError`, `Interrupted`.
std::optional<double> gifQualityScore(const CompressionRun& run, const URL& output);

}  // namespace tidewell
