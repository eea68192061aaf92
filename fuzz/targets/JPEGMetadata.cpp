// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/JPEGMetadata.h"

#include "CompressionKit/image/ImageFacts.h"
#include "support/Rewriting.h"

using namespace tidewell;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::ImageFile file({data, size}, "image.jpg");
  JPEGMetadata::hasMultiplePictures(file.url());
  ImageFacts::hasFineJPEGQuantization(file.url());
  file.rewrite([](int orientation, const URL& url) { JPEGMetadata::preserveOrientation(orientation, url); });
  return 0;
}
