// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/image/ImageFacts.h"

namespace tidewell {

/// What `heic-decoder` says about a file: one line of numbers with the profile's name behind them. Whoever
/// reads it must not trust it, for the decoder has read bytes of anybody's making.
struct HEICAnswer {
  static constexpr std::size_t maximumBytes = 4096;

  ImageFacts facts;
  bool hasPNG = false;  ///< the PNG was asked for, and is complete

  /// At most `maximumBytes`; a longer name is cut off.
  std::string text() const;
  /// Nothing for anything that `text` does not write. Zeros may follow it.
  static std::optional<HEICAnswer> parse(std::string_view text);
};

}  // namespace tidewell
