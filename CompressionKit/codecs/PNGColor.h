// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <png.h>

#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/codecs/ImageInput.h"
#include "CompressionKit/codecs/ImageProperties.h"
#include "CompressionKit/platform/Stop.h"

namespace tidewell {

/// A chunk that libpng hands over as it is.
inline constexpr char codePointsChunk[] = "cICP";

/// What a PNG says of its colours: code points, else a profile, else sRGB, else a gamma and primaries. The
/// info has been read up to the pixels, `codePointsChunk` with it.
void describePNGColor(png_structp png, png_infop info, const ImageInput& input, const StopToken& stop,
                      ImageProperties& properties);

/// The data of the first chunk of a type before the first of type `last`, if there is one of a size that we
/// take. Some chunks may stand behind the pixels, where libpng would read them only after all of those.
/// Throws `Interrupted`.
std::optional<std::string> chunkData(const ImageInput& input, std::string_view wanted, const StopToken& stop,
                                     std::string_view last = "IEND");

}  // namespace tidewell
