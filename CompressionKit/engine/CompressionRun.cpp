#include "CompressionKit/engine/CompressionRun.h"

#include <algorithm>

namespace tidewell {

const Candidate* CompressionRun::smallest() const {
  const auto found = std::ranges::min_element(candidates, {}, &Candidate::bytes);
  return found == candidates.end() ? nullptr : &*found;
}

}  // namespace tidewell
