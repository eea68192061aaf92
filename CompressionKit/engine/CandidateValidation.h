#pragma once

#include <optional>
#include <string>

#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The gate between an encoder's output and the list of candidates: checks of growing cost, the first that
/// fails ends it. Leaves one record in the trace. Nothing when the output is rejected; throws what the checks
/// throw, and `CompressionError::fileOperation` for an output that is structurally another image.
std::optional<Candidate> validated(const CompressionRun& run, const URL& output, const std::string& encoder,
                                   const Proof& proof);

}  // namespace tidewell
