// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>

namespace tidewell {

/// The smallest Exif block there is: a little-endian TIFF structure of 26 bytes whose one entry is the
/// orientation (1 to 8). JPEG puts "Exif\0\0" in front of it, PNG takes it as it is.
inline std::string orientationExif(int orientation) {
  std::string block("II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0", 18);
  block.push_back(static_cast<char>(orientation));
  block.append(7, '\0');
  return block;
}

}  // namespace tidewell
