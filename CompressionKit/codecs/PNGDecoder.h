// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <memory>
#include <string_view>

#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell {

bool looksLikePNG(std::string_view head);

std::unique_ptr<ImageSource> openPNG(const ImageInput& input, const StopToken& stop);

}  // namespace tidewell
