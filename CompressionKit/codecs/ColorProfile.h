// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// ICC colour profiles (ISO 15076-1): what one says of itself, and profiles of our own making.
namespace tidewell::color {

/// The profile's description, in English where it has several languages, or a name made from its bytes where
/// it has none; nothing for bytes that are no profile.
std::optional<std::string> profileDescription(std::string_view icc);

/// The bytes are a profile of an RGB device.
bool isRGBProfile(std::string_view icc);

/// Colours of the RGB profile show as those of sRGB with the same numbers, to three steps of 8 bits.
bool isSRGB(std::string_view icc);

/// Turns pixels (premultiplied R, G, B, A) of the RGB profile into those that sRGB shows alike. False, and
/// nothing is done, for bytes that are no such profile.
bool convertToSRGB(std::string_view icc, std::span<std::uint8_t> pixels);

/// How many of the pixels (R, G, B from 0 to 1; they are converted where they lie) have colours of the RGB
/// profile that sRGB lacks by more than five steps of 8 bits. None for bytes that are no such profile.
std::size_t countOutsideSRGB(std::string_view icc, std::span<float> pixels);

/// The same profile put together anew, with the flaws of its header and padding mended; empty for bytes that
/// are no profile.
std::string rewritten(std::string_view icc);

/// White, red, green, blue as CIE x, y.
using Chromaticities = std::array<double, 8>;
inline constexpr Chromaticities bt709 = {0.3127, 0.3290, 0.640, 0.330, 0.300, 0.600, 0.150, 0.060};
inline constexpr Chromaticities displayP3 = {0.3127, 0.3290, 0.680, 0.320, 0.265, 0.690, 0.150, 0.060};
inline constexpr Chromaticities adobeRGB = {0.3127, 0.3290, 0.640, 0.330, 0.210, 0.710, 0.150, 0.060};
inline constexpr double adobeRGBGamma = 563.0 / 256;

/// An RGB profile with the curve of sRGB (IEC 61966-2-1), or a pure power curve when `gamma` is given. The
/// same arguments always make the same bytes. Empty for chromaticities that span no colour space.
std::string makeRGBProfile(const std::string& description, const Chromaticities& chromaticities,
                           std::optional<double> gamma = std::nullopt);

/// An RGB profile that shows grey samples, stored as equal R, G, B, as the given grey profile does. Empty for
/// bytes that are no grey profile.
std::string rgbProfileOfGrey(std::string_view icc);

}  // namespace tidewell::color
