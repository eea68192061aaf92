// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <memory>

#include "CompressionKit/codecs/Bitmap.h"

namespace tidewell {

/// Brings the pixels of one image to sRGB, for screens of which nothing else is known.
///
/// Profiles of RGB, gammas and primaries are followed, and code points but those of HDR, which show as they
/// are stored. Any number of threads may use one at once.
class ScreenColor {
 public:
  explicit ScreenColor(const ColorTag& color);
  ScreenColor(const ScreenColor&) = delete;
  ScreenColor& operator=(const ScreenColor&) = delete;
  ~ScreenColor();

  /// Alpha stays. The bitmap's tag says sRGB afterwards.
  void convert(Bitmap& bitmap) const;

 private:
  struct Transform;
  std::unique_ptr<Transform> transform_;  ///< null where the numbers are those of sRGB
};

}  // namespace tidewell
