// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "CompressionKit/codecs/ImageSource.h"
#include "support/Target.h"

namespace tidewell::fuzz {

/// Larger images cost time and show no other faults.
constexpr std::int64_t maximumPixels = std::int64_t{1} << 17;
constexpr std::size_t maximumImages = 6;

/// Nothing for what is no image of ours, or a large one. The input must outlive it.
std::unique_ptr<ImageSource> openSmall(Input input);

/// One image, of the first `maximumImages`; nothing when it cannot be decoded to its end.
std::optional<std::vector<std::uint8_t>> pixelsOf(ImageSource& source, std::size_t index,
                                                  std::int64_t minimumLongSide = 0);
std::optional<std::vector<std::uint16_t>> deepPixelsOf(ImageSource& source, std::size_t index);

bool isSound(ImageSource& source, std::size_t index);

/// Decodes in every way that a source has and requires that all agree.
void decodeInEveryWay(ImageSource& source);

}  // namespace tidewell::fuzz
