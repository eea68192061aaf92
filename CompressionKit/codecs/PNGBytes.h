// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tidewell {

inline constexpr std::string_view pngSignature = "\x89PNG\r\n\x1A\n";
/// Bytes of a chunk beside its data: length, type and CRC.
inline constexpr std::size_t pngChunkOverhead = 12;

/// The caller has checked that four bytes are there.
inline std::uint32_t bigEndian32(std::string_view data, std::size_t i) {
  std::uint32_t value = 0;
  for (std::size_t k = 0; k < 4; ++k) value = value << 8 | static_cast<unsigned char>(data[i + k]);
  return value;
}

}  // namespace tidewell
