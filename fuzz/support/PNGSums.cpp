// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/PNGSums.h"

#include <zlib.h>

#include <string_view>

#include "CompressionKit/codecs/PNGBytes.h"

namespace tidewell::fuzz {

void correctPNGSums(std::span<std::uint8_t> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (!text.starts_with(pngSignature)) return;
  for (std::size_t at = pngSignature.size(); bytes.size() - at >= pngChunkOverhead;) {
    const std::size_t length = bigEndian32(text, at);
    if (length > bytes.size() - at - pngChunkOverhead) return;
    auto sum = crc32(0, bytes.data() + at + 4, static_cast<uInt>(length + 4));
    at += length + pngChunkOverhead;
    for (std::size_t i = 1; i <= 4; ++i, sum >>= 8) bytes[at - i] = static_cast<std::uint8_t>(sum);
  }
}

}  // namespace tidewell::fuzz
