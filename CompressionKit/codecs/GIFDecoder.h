#pragma once

#include <memory>
#include <string_view>

#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell {

bool looksLikeGIF(std::string_view head);

std::unique_ptr<ImageSource> openGIF(const ImageInput& input, const StopToken& stop);

}  // namespace tidewell
