// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "CompressionKit/codecs/Bitmap.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/ScreenColor.h"
#include "CompressionKit/image/UnchangedFiles.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

class RowFile;

/// One picture for the screen, upright and in sRGB: a reduced view of it at once, and later any part of it.
///
/// For the parts it is decoded once more, at full size, into a file without a name, 4 bytes for each pixel.
/// No format lets us begin in the middle of its rows, so that each part would else cost all that lies above
/// it; a file is dropped from memory by the kernel when that is needed elsewhere; and once it is written,
/// what happens to the picture's own file is no matter any more. Memory is that of the reduced view and of
/// the parts that are asked for, beside what the format needs while it is decoded (`ImageLimits`).
class ScreenPicture {
 public:
  /// Decodes the view, whose longer side is at most `maximumSide`. Throws as
  /// `ImageRendering::comparisonImage`, and `Interrupted`.
  ScreenPicture(const URL& url, std::int64_t maximumSide, const StopToken& stop);
  ScreenPicture(const ScreenPicture&) = delete;
  ScreenPicture& operator=(const ScreenPicture&) = delete;
  ~ScreenPicture();

  /// Pixels, upright.
  std::int64_t width() const { return width_; }
  std::int64_t height() const { return height_; }
  bool hasAlpha() const { return properties_.hasAlpha; }
  /// More than one for animations, of which everything here is the first frame.
  std::size_t frameCount() const { return frameCount_; }
  /// Of the embedded colour profile.
  const std::optional<std::string>& profileName() const { return properties_.profileName; }
  const Bitmap& reduced() const { return reduced_; }

  /// Makes `part` possible, unless it is. False without a place for it: less than twice its size is free, or
  /// it would be larger than `maximumFileBytes`, or the disk became full. Throws
  /// `CompressionError::invalidImage`, `Interrupted`. One thread at a time.
  bool prepareParts();
  /// Gives the place back: `part` is not possible any more. No thread may be asking for one.
  void dropParts();
  static constexpr std::int64_t maximumFileBytes = std::int64_t{8} << 30;

  /// The part of the upright picture, which must lie inside of it, with each side divided by `reduction`,
  /// rounded up (area average). Several threads may ask at once, after `prepareParts`. Throws `FileError`.
  Bitmap part(const Rectangle& part, std::int64_t reduction = 1) const;

 private:
  std::unique_ptr<ImageSource> open() const;
  Rectangle stored(const Rectangle& upright) const;

  StopToken stop_;
  std::optional<ImageInput> input_;
  ImageProperties properties_;  ///< of the image as it is stored
  std::size_t index_ = 0, frameCount_ = 1;
  std::int64_t width_ = 0, height_ = 0;
  Bitmap reduced_;
  std::optional<ScreenColor> color_;
  std::unique_ptr<RowFile> rows_;
};

/// The frames of an animation for the screen, in sRGB, composed one at a time. Belongs to one thread at a
/// time.
class ScreenAnimation {
 public:
  /// Frames larger than `maximumSide` are reduced to it. Throws as `ScreenPicture`.
  ScreenAnimation(const URL& gif, std::int64_t maximumSide, const StopToken& stop);

  std::size_t count() const { return delays_.size(); }
  /// How long each is shown, in seconds; those that are as good as none as viewers show them, for 0.1.
  const std::vector<double>& delays() const { return delays_; }
  /// Costs the frames since the last call, or those from the first one when it is an earlier one. Throws as
  /// the constructor does.
  Bitmap frame(std::size_t index);

 private:
  URL url_;
  files::ResourceValues state_;
  std::unique_ptr<ImageSource> source_;
  std::int64_t maximumSide_;
  std::vector<double> delays_;
  std::optional<ScreenColor> color_;
};

namespace ImageRendering {

struct ScreenPictures {
  UnchangedFiles files;
  std::unique_ptr<ScreenPicture> original, compressed;
};

/// `comparisonImages` for the screen in bounded memory, with the same checks: reduced views of both, which
/// are decoded at once on `workers()`, at high priority. Blocks, and so must not be called there. Throws as
/// that, and `Interrupted`.
std::shared_ptr<const ScreenPictures> screenPictures(const URL& original, const URL& compressed,
                                                     const std::optional<std::string>& originalHash,
                                                     const std::optional<std::string>& replacementHash,
                                                     std::int64_t maximumSide, const StopToken& stop = {});

/// Makes parts of both possible, and checks that the files are still what they were. False where only the
/// reduced views are to be had; then, and where it throws, neither takes room on the disk. Blocks and throws
/// as `screenPictures`.
bool prepareParts(const std::shared_ptr<const ScreenPictures>& pictures);

}  // namespace ImageRendering
}  // namespace tidewell
