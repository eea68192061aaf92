// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/PNGMetadata.h"

#include "support/Rewriting.h"

using namespace tidewell;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::ImageFile file({data, size}, "image.png");
  file.rewrite([](int orientation, const URL& url) { PNGMetadata::preserveOrientation(orientation, url); });
  return 0;
}
