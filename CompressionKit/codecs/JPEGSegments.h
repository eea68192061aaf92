// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include "CompressionKit/platform/Stop.h"

namespace tidewell {

/// The marker segments of a JPEG file before its first scan.
struct JPEGSegments {
  static constexpr int app0 = 0xE0, app1 = 0xE1, app2 = 0xE2, app13 = 0xED, comment = 0xFE;

  using Wanted = std::function<bool(int marker)>;
  /// `body` is what follows the length, at most 65,533 bytes; the callee may take it.
  using Visit = std::function<void(int marker, std::string& body)>;

  /// Calls `visit` for each segment that is wanted. Passes over stray bytes between segments, as decoders do.
  /// Returns where the marker begins that ends the walk, of the first scan or of the end of the image;
  /// nothing when the file ends before it.
  static std::optional<std::int64_t> walk(std::FILE* file, const StopToken& stop, const Wanted& wanted,
                                          const Visit& visit);
};

}  // namespace tidewell
