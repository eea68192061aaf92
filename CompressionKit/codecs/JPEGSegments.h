// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Stop.h"

namespace tidewell {

/// The marker segments of a JPEG file before its first scan.
struct JPEGSegments {
  static constexpr int app0 = 0xE0, app1 = 0xE1, app2 = 0xE2, app13 = 0xED, app14 = 0xEE, app15 = 0xEF;
  static constexpr int startOfImage = 0xD8, endOfImage = 0xD9, startOfScan = 0xDA, comment = 0xFE;

  static bool isRestart(int marker) { return marker >= 0xD0 && marker <= 0xD7; }
  /// Has neither length nor body. The end of the image is not among these.
  static bool isStandalone(int marker) {
    return marker == startOfImage || marker == 0x01 || isRestart(marker);
  }
  /// Whatever its coding.
  static bool isFrame(int marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
  }

  using Wanted = std::function<bool(int marker)>;
  /// `body` is what follows the length, at most 65,533 bytes; the callee may take it.
  using Visit = std::function<void(int marker, std::string& body)>;

  /// Calls `visit` for each segment that is wanted. Passes over stray bytes between segments, as decoders do.
  /// Returns where the marker begins that ends the walk, of the first scan or of the end of the image;
  /// nothing when the file ends before it.
  static std::optional<std::int64_t> walk(std::FILE* file, const StopToken& stop, const Wanted& wanted,
                                          const Visit& visit);

  /// The bytes of a segment; `body` as `walk` gives it.
  static std::string bytes(int marker, std::string_view body);
};

}  // namespace tidewell
