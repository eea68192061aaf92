// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <memory>

#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The frames of one animation, one after the other, as PNG files for the metric. Belongs to one thread.
class GIFFrames {
 public:
  /// The name under which frame `index` is kept in `directory`.
  static URL file(const URL& directory, std::size_t index);

  /// Throws `CompressionError::invalidImage`, `Interrupted`.
  GIFFrames(const AnimationFile& gif, const StopToken& stop);
  GIFFrames(const GIFFrames&) = delete;
  GIFFrames& operator=(const GIFFrames&) = delete;
  ~GIFFrames();

  std::size_t count() const { return count_; }
  /// Goes to the next frame, at first to frame 0. Throws `CompressionError::invalidImage`, `Interrupted`.
  void next();
  const GIFAnimation::Canvas& canvas() const { return canvas_; }
  /// Writes the frame; a file that could not be written is removed. Throws `CompressionError`, `Interrupted`,
  /// and `FileError` when the disk is full.
  void write(const URL& url);

 private:
  class Indexes;

  const StopToken stop_;
  const std::shared_ptr<GIFAnimation> source_;
  const std::size_t count_;
  std::size_t next_ = 0;
  GIFAnimation::Canvas canvas_;
  const std::unique_ptr<Indexes> indexes_;
};

namespace canvases {

enum class Compared { pixels, alpha };

/// Whether two frames agree where either differs from the frame before: if those before agreed everywhere,
/// so do these. For first frames it is everywhere. False for canvases of different sizes.
bool agreeInChanges(const GIFAnimation::Canvas& one, const GIFAnimation::Canvas& other, Compared compared);

}  // namespace canvases
}  // namespace tidewell
