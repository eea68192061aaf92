// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"

namespace tidewell {

/// Brings samples of an HDR transfer function (ITU-R BT.2100: PQ or HLG) to standard range: Display P3 with
/// the curve of sRGB, 16 bits.
///
/// White of the standard range stands for the reference white of 203 cd/m² (ITU-R BT.2408). Brighter light is
/// rolled off into it with the curve of ITU-R BT.2390 (section 5.4.1), applied to the largest of the three
/// components so that hues stay; light below about 90 cd/m² is not changed. What lies outside Display P3 is
/// clipped. Belongs to one thread at a time.
class StandardRange {
 public:
  enum class Transfer { pq, hlg };

  /// `bits` wide are the samples to convert. `peak` is the brightest light in the picture, in cd/m²; HLG is
  /// shown as on its nominal display of 1000.
  StandardRange(Transfer transfer, const color::Chromaticities& primaries, int bits, double peak = 1000);
  StandardRange(const StandardRange&) = delete;
  StandardRange& operator=(const StandardRange&) = delete;
  ~StandardRange();

  /// Pixels of three or four samples (R, G, B, and an alpha that is left alone), converted in place: from
  /// codes of `bits` to codes of 16 bits.
  void convert(std::span<std::uint16_t> samples, std::size_t samplesPerPixel);

  /// The profile of the converted samples.
  static std::string outputProfile();

 private:
  double rolledOff(double light) const;
  float gain(float light) const;

  Transfer transfer_;
  double peak_;
  std::vector<float> light_;  ///< per code: cd/m² (PQ), or light at the scene from 0 to 1 (HLG)
  std::vector<float> gain_;   ///< per step of peak / (size - 1) cd/m²: what to multiply light with
  std::vector<float> linear_;
  std::vector<std::uint16_t> converted_;
  struct Transform;
  std::unique_ptr<Transform> transform_;
};

}  // namespace tidewell
