// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

/// What libFuzzer calls, and the replay: one input. Each file of targets/ has one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tidewell::fuzz {

using Input = std::span<const std::uint8_t>;

inline std::string_view text(Input input) {
  return {reinterpret_cast<const char*>(input.data()), input.size()};
}

/// What must hold of every input, in every build.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace tidewell::fuzz
