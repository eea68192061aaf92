// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/tools/ToolRunner.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {

/// Two files to compare, and the hashes that they must have.
struct ComparedFiles {
  URL original;
  URL result;
  std::optional<std::string> originalHash = std::nullopt;
  std::optional<std::string> resultHash = std::nullopt;

  /// The proven backup of a record and what stands in its place now. Throws as `UndoStore::verifyBackup`.
  static ComparedFiles of(const UndoStore& store, const UndoRecord& record);
};

/// What differs between an original and what was made of it, measured now.
struct Comparison {
  struct Side {
    std::int64_t bytes = 0;
    std::int64_t width = 0, height = 0;  ///< pixels, upright
    std::int64_t frames = 1;
    std::optional<std::string> profile = std::nullopt;
  };
  /// The cell of a grid over the upright picture whose pixels differ most, in pixels of the original.
  struct Region {
    std::int64_t x = 0, y = 0, width = 0, height = 0;
    double difference = 0;  ///< mean over its pixels, 0 to 255
  };

  Side original;
  Side result;
  std::optional<double> score;  ///< absent when the two have no common size or number of frames
  std::optional<Region> worst;  ///< absent also when no pixel differs, or colours mean another thing
  std::vector<std::string> lostMetadata;  ///< what the original holds and the result does not, by its names
  int amplification = 0;                  ///< of the difference in the picture, where one was written
};

/// Decodes reduced views, so that memory stays bounded. With `picture`, writes there, as a new PNG file, the
/// original, the result and their amplified difference side by side; nothing is overwritten. Files that are
/// not what the hashes say, or change meanwhile, throw `CompressionError::fileOperation`; else throws what
/// decoding and the metric do.
Comparison compare(const ComparedFiles& files, const ToolRunner& tools,
                   const std::optional<URL>& picture = std::nullopt);

}  // namespace tidewell
