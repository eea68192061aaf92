// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEIFBoxes.h"
#include "support/Images.h"

using namespace tidewell;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  if (!heif::container(fuzz::text(input).substr(0, heif::headBytes))) return 0;
  if (const auto source = fuzz::openSmall(input)) fuzz::decodeInEveryWay(*source);
  return 0;
}
