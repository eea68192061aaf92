// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>

#include "CompressionKit/batch/Comparison.h"
#include "CompressionKit/codecs/Bitmap.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The two pictures of a comparison, upright and of one size.
struct ComparisonViews {
  Bitmap original;
  Bitmap result;

  /// Makes both views of sRGB, so that they can be compared. False where colours are not told by a profile.
  bool convertToSRGB();
  /// Where they differ most, told in pixels of a picture of `width` × `height`; nothing where they are equal.
  std::optional<Comparison::Region> worstRegion(std::int64_t width, std::int64_t height) const;
  /// Writes both and what `amplification` makes of their difference side by side, as a new file: throws
  /// `FileError` (EEXIST) where one stands.
  void write(const URL& file, int amplification) const;
  /// The largest whole factor, up to 16, that keeps the largest difference within the range.
  int amplification() const;
};

}  // namespace tidewell
