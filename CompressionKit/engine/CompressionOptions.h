// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>

#include "CompressionKit/engine/CompressionResult.h"

namespace tidewell {

/// The least that a replacement must save to be worth it.
struct MinimumSaving {
  double percent = 0;  ///< of the original
  std::int64_t bytes = 0;

  /// Both are reached. A file that grew never reaches any.
  bool met(std::int64_t originalBytes, std::int64_t finalBytes) const {
    const std::int64_t saved = originalBytes - finalBytes;
    return saved >= bytes && static_cast<double>(saved) * 100 >= percent * static_cast<double>(originalBytes);
  }
};

/// Hears of what replaces a file, or is made of it, before it stands under the user's name: so it misses
/// none, whenever the process ends, and hears of some that never stand there.
class OutputListener {
 public:
  virtual void willPublish(const CompressionResult& result) noexcept = 0;

 protected:
  ~OutputListener() = default;
};

/// What a caller may ask of one run. Without anything, a run does what the service does.
struct CompressionOptions {
  /// Date, place, camera, author, comments and the like go with the image, and count as bytes of it. So do
  /// the colours of a wide profile: what has some that sRGB lacks is not converted to it. Files in which
  /// something else is embedded, a film behind the picture, are passed over.
  bool keepMetadata = false;
  /// Of all that the image says beside its pixels and colours, nothing but its orientation is left in what
  /// the run makes, whatever the encoders do; not together with `keepMetadata`. Wide colours stay as with
  /// that. Where nothing smaller is found, or too little is gained, the file loses its metadata alone, every
  /// pixel proven to be the same. A file in which some stays is one for which the run throws; but a HEIC file
  /// itself is never rewritten.
  bool stripMetadata = false;
  /// Without, no encoder runs, so that no pixel changes: all that may be done is to strip a file. A HEIC file
  /// is passed over then.
  bool recompress = true;
  /// What replaces the file, or is made of it, has its times of access and modification, as they were before
  /// the run read it.
  bool keepTimes = false;
  /// A smaller gain counts as none.
  std::optional<MinimumSaving> minimumSaving = std::nullopt;
  /// Told of outputs before they stand anywhere; none when nobody asks.
  OutputListener* outputs = nullptr;

  bool isTooLittle(std::int64_t originalBytes, std::int64_t finalBytes) const {
    return minimumSaving && !minimumSaving->met(originalBytes, finalBytes);
  }
};

}  // namespace tidewell
