// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/codecs/ImageProperties.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What `ImageFacts::compatible` cannot tell from names: whether the candidate's file says of its colours
/// what keeps those of the original. `mayBeConverted`: its pixels may have been converted to sRGB, which it
/// must then say.
bool colorsAgree(const ImageProperties& original, const ImageProperties& candidate, bool mayBeConverted);

/// Whether a visible part of the image, more than a thousandth, has colours that sRGB lacks. Looks at a
/// million pixels at most, spread evenly. Throws `ImageDecodeError`, `FileError`, `Interrupted`.
bool needsMoreThanSRGB(const URL& png, const ImageProperties& properties, const StopToken& stop = {});

}  // namespace tidewell
