// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// An animation whose frames can be looked at in place, for those who look at all of them.
class GIFAnimation : public ImageSource {
 public:
  struct Area {
    std::int64_t left = 0, top = 0, width = 0, height = 0;
  };
  struct Canvas {
    std::int64_t width = 0, height = 0;
    std::span<const std::uint8_t> pixels;  ///< R, G, B, A by rows; each opaque, or four zeros
    std::array<Area, 2> changed;           ///< they cover all that differs from the frame before; for the
                                           ///< first frame, everything
  };
  /// The composed canvas of a frame, valid until the source is used again. Throws and costs what `rows` does.
  virtual Canvas canvas(std::size_t index) = 0;
};

bool looksLikeGIF(std::string_view head);

std::unique_ptr<ImageSource> openGIF(const ImageInput& input, const StopToken& stop);

/// Throws `FileError`, and `ImageDecodeError` for what is no GIF.
std::unique_ptr<GIFAnimation> openAnimation(const ImageInput& input, const StopToken& stop);

/// The file of an animation, and who has begun to look at it, if anybody: to go on from there saves a pass
/// over the file, and the frame that was drawn.
struct AnimationFile {
  URL url;
  std::shared_ptr<GIFAnimation> begun = nullptr;

  /// What had begun keeps its own stop token. Throws as `openAnimation`.
  std::shared_ptr<GIFAnimation> open(const StopToken& stop) const;
};

}  // namespace tidewell
