#pragma once

#include <optional>
#include <string>

#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What a step of a plan promises of its output, and what is asked of it.
struct ValidationRules {
  bool isLossy = true;                ///< the step may change pixels
  bool allowsSRGBConversion = false;  ///< the profile may be a conversion of the original's to sRGB
  bool acceptLarger = false;          ///< an output that is not smaller is judged all the same
  std::optional<double> minimumScore = std::nullopt;  ///< else the engine's threshold for the kind
  const Candidate* losslessCandidate = nullptr;       ///< what the output must reproduce pixel for pixel
};

/// The gate between an encoder's output and the list of candidates: checks of growing cost, the first that
/// fails ends it. Leaves one record in the trace. Nothing when the output is rejected; throws what the checks
/// throw, and `CompressionError::fileOperation` for an output that is structurally another image.
std::optional<Candidate> validated(const CompressionRun& run, const URL& output, const std::string& encoder,
                                   const ValidationRules& rules);

}  // namespace tidewell
