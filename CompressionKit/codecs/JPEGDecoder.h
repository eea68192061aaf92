// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell {

bool looksLikeJPEG(std::string_view head);

/// Beyond this, the coefficients of progressive images are held in a sparse form, not as libjpeg does. Small
/// images are decoded a little faster without.
inline constexpr std::int64_t maximumPlainCoefficientBytes = std::int64_t{32} << 20;

std::unique_ptr<ImageSource> openJPEG(const ImageInput& input, const StopToken& stop,
                                      std::int64_t maximumPlainBytes = maximumPlainCoefficientBytes);

}  // namespace tidewell
