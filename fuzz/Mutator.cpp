// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdint>
#include <cstring>

#include "support/PNGSums.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximumSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximumSize,
                                               unsigned seed);

/// As libFuzzer changes inputs, but libpng would look at little of a PNG whose sums are wrong: most get right
/// ones.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximumSize,
                                    unsigned seed) {
  size = LLVMFuzzerMutate(data, size, maximumSize);
  if (seed % 16 != 0) tidewell::fuzz::correctPNGSums({data, size});
  return size;
}
