// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tidewell {

/// What is read of an Exif block.
struct Exif {
  std::optional<int> orientation;  ///< 1 to 8; absent when the block has none, or another number
  bool isAdobeRGB = false;  ///< how cameras mark photos in Adobe RGB without a profile (DCF 2.0, "R03")
};

/// `tiff` is the block without the "Exif" prefix. Malformed parts count as absent.
Exif readExif(std::string_view tiff);

}  // namespace tidewell
