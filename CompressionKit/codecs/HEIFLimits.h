// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string_view>

#include "CompressionKit/codecs/HEIFItems.h"

namespace tidewell::heif {

/// Refuses a file that could make libheif and its decoder take far more memory or time than its image needs,
/// end in the depth of a recursion, or deliver pixels that nothing was decoded into, whatever the file
/// declares elsewhere. Throws `ImageDecodeError`.
struct Limits {
  std::uint64_t maximumPixels;       ///< of a grid
  std::uint64_t maximumCodedPixels;  ///< of a picture of a HEVC stream
  std::uint64_t maximumWork;         ///< pixels to be decoded for one item, those of its parts included
  std::uint64_t maximumTiles = 1024;
};
void checkLimits(std::string_view meta, const ReadAt& readAt, const Limits& limits);

}  // namespace tidewell::heif
