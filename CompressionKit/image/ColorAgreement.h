#pragma once

#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What `ImageFacts::compatible` cannot tell from names: whether the candidate's file says of its colours
/// what keeps those of the original. `mayBeConverted`: its pixels may have been converted to sRGB, which it
/// must then say. Throws `CompressionError::invalidImage`, `Interrupted`.
bool colorsAgree(const URL& original, const URL& candidate, bool mayBeConverted, const StopToken& stop = {});

}  // namespace tidewell
