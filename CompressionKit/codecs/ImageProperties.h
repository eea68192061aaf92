// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace tidewell {

/// A file that is no image, an image that is damaged or cut off, or one whose decoding would take more
/// memory than `ImageLimits` allows.
class ImageDecodeError : public std::exception {
 public:
  explicit ImageDecodeError(std::string reason) : reason_(std::move(reason)) {}
  const char* what() const noexcept override { return "图片无法解码"; }
  /// The decoder's own words, for developers.
  const std::string& reason() const { return reason_; }

 private:
  std::string reason_;
};

/// What a hostile file may cost. Images beyond these limits fail with `ImageDecodeError`.
struct ImageLimits {
  /// Formats that cannot be decoded by rows (interlaced PNG, progressive JPEG, a GIF canvas, HEIC) may hold
  /// this much at once.
  static constexpr std::int64_t maximumResidentBytes = std::int64_t{512} << 20;
  /// Metadata kept of one image (colour profile, Exif).
  static constexpr std::int64_t maximumMetadataBytes = std::int64_t{16} << 20;
};

/// The colour spaces of PNGs without a profile, where the difference matters: nothing is said of the colours
/// (they show as sRGB), or only a gamma.
inline constexpr std::string_view untaggedName = "Untagged sRGB";
inline constexpr std::string_view gammaNamePrefix = "RGB gamma ";

/// How an image says what its numbers mean as colours; what a copy of its pixels must carry along so that
/// it shows the same colours.
struct ColorTag {
  std::string icc;                                    ///< embedded ICC profile, empty without one
  bool srgb = false;                                  ///< marked as sRGB, or untagged
  std::optional<double> gamma;                        ///< PNG gAMA (encoding exponent) without ICC or sRGB
  std::optional<std::array<double, 8>> chromaticity;  ///< PNG cHRM: white, red, green, blue as x, y
  std::string codePoints;  ///< the four bytes of a PNG cICP, if nothing else says it
  bool operator==(const ColorTag&) const = default;
};

/// The name of the colour space of an image marked as sRGB, and, but for PNG, of an untagged one.
inline constexpr std::string_view sRGBName = "sRGB IEC61966-2.1";

struct ImageProperties {
  std::int64_t width = 0;  ///< stored pixels, orientation not applied
  std::int64_t height = 0;
  bool hasAlpha = false;
  int bitsPerSample = 8;
  std::optional<std::string> profileName;     ///< description of the embedded ICC profile
  std::optional<std::string> colorSpaceName;  ///< name of the decoded pixels' colour space
  std::optional<int> orientation;             ///< Exif value as stored; absent when the file has none
  std::optional<double> delay;                ///< seconds this frame of an animation is shown, as stored
  /// How often the animation is repeated, as stored (0 is for ever); absent when the file does not say.
  std::optional<std::int64_t> loopCount;
  ColorTag color;
  bool isTagged = false;        ///< a JPEG or PNG file says itself what its colours are
  bool hasGreyProfile = false;  ///< the embedded profile is one of grey samples
  std::string codePoints;       ///< the four bytes of a PNG cICP, which has the last word on the colours

  /// Puts an embedded profile into the properties: its name, and what a copy in RGB must carry. A profile
  /// that cannot be read counts as absent.
  void describeProfile(std::string icc);
};

}  // namespace tidewell
