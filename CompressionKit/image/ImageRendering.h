// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <utility>

#include "CompressionKit/codecs/Bitmap.h"
#include "CompressionKit/platform/OperationQueue.h"
#include "CompressionKit/platform/URL.h"

/// Decoded images for display: upright, in standard range, with the colour tag of their file.
namespace tidewell::ImageRendering {

struct ComparisonImages {
  Bitmap original;
  Bitmap compressed;
};

/// What decodes run on when the caller must not wait: at most 2 at once in the whole process. Made on first
/// use.
OperationQueue& workers();

/// Runs `operation` as one operation on `workers()`.
template <typename Operation>
auto read(OperationQueue::Priority priority, Operation operation) {
  return workers().add(priority, std::move(operation));
}

/// The image at its full size. Throws `CompressionError`: `fileOperation` for a URL that is no local file,
/// `invalidImage` for what cannot be decoded or would take more than `ImageLimits::maximumResidentBytes`; for
/// a HEIC file also what `HEICDecoding` throws.
Bitmap comparisonImage(const URL& url);

/// The image with a longer side of at most `maximumPixelSize`. Throws `CompressionError::invalidImage`.
Bitmap thumbnail(const URL& url, std::int64_t maximumPixelSize);

/// Both images at full size, decoded on `workers()` at high priority, if the files are what they were when
/// these hashes were taken and stay so meanwhile; a hash that is not given is not compared. The future throws
/// `CompressionError`, or `FileError` for a file that cannot be hashed.
std::future<ComparisonImages> comparisonImages(const URL& original, const URL& compressed,
                                               const std::optional<std::string>& originalHash,
                                               const std::optional<std::string>& replacementHash);

}  // namespace tidewell::ImageRendering
