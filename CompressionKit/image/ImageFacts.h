// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/codecs/ImageProperties.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

class GIFAnimation;
class ImageSource;
struct AnimationFile;

/// What a replacement must keep of an image, read once by `inspect`.
struct ImageFacts {
  ImageKind kind = ImageKind::jpeg;
  std::int64_t width = 0;  ///< stored pixels of image 0
  std::int64_t height = 0;
  std::int64_t frameCount = 0;
  bool hasAlpha = false;
  std::optional<std::string> profileName;  ///< ICC description, else the colour space's name
  std::int64_t orientation = 1;            ///< Exif value, 1 when absent
  bool hasJPEGMultiPictureData = false;
  std::optional<std::int64_t> gifLoopCount;
  std::vector<double> gifFrameDelays;  ///< seconds, one per image of a GIF; empty for other kinds

  bool operator==(const ImageFacts&) const = default;

  /// Proves that the file decodes completely and that its content agrees with its extension. Throws
  /// `CompressionError` (`invalidImage`, `formatMismatch`), `Interrupted` and what
  /// `PNGMetadata::validateStatic` and, for a HEIC file, `HEICDecoding` throw.
  static ImageFacts inspect(const URL& url, const StopToken& stop = {});

  /// Pixels of an image that the metric is shown whole; of a larger one it gets two views.
  static constexpr std::int64_t maximumWholePixels = 8'000'000;
  bool isShownInViews() const;
  /// What one pass over the rows of an image yields.
  struct Inspection;
  enum class Views { unwanted, wanted };
  /// Of a JPEG, PNG or GIF: whether the image has been decoded completely when `inspection` returns.
  enum class Proof { made, owed };
  /// As `inspect`, with all that was found, and the views of an image that is shown in them.
  static Inspection inspection(const URL& url, Views views, const StopToken& stop = {},
                               Proof proof = Proof::made);

  /// Called on the original's facts: whether the candidate keeps the original's observable properties.
  /// `allowSRGBConversion`: the candidate may have been converted to sRGB (PNG only).
  bool compatible(const ImageFacts& candidate, bool allowSRGBConversion) const;

  // Comparisons by decoded pixels, original first. They walk both images in bands of at most 1,048,576
  // pixels, decoded in step, and stop at the first difference. Any failure counts as a difference; they
  // throw nothing but `Interrupted`.

  static bool pixelsEqual(const URL& original, const URL& candidate, const StopToken& stop = {});
  /// The straight samples at 16 bits, 8-bit ones times 257; what lies under an alpha of 0 in both is no
  /// matter.
  static bool samplesEqual(const URL& original, const URL& candidate, const StopToken& stop = {});
  static bool samplesEqual(const URL& original, ImageSource& candidate, const StopToken& stop = {});
  /// Every alpha value differs by at most `tolerance`.
  static bool alphaDeviationWithin(const URL& original, const URL& candidate, std::uint8_t tolerance,
                                   const StopToken& stop = {});
  /// The candidate's alpha stays within the limits of palette quantisation.
  static bool quantizedAlphaWithin(const URL& original, const URL& candidate, const StopToken& stop = {});
  static bool quantizedAlphaWithin(const URL& original, ImageSource& candidate, const StopToken& stop = {});
  /// Same number of images, each rendering to equal bytes.
  static bool gifFramesEqual(const AnimationFile& original, const AnimationFile& candidate,
                             const StopToken& stop = {});

  /// Writes every frame of a GIF as "frame-<index>.png" into `directory` (made with its parents), in frame
  /// order. Throws `CompressionError`, `FileError`, `Interrupted`; files written before a failure stay.
  static std::vector<URL> exportGIFFrames(const URL& gif, const URL& directory, const StopToken& stop = {});

  /// The JPEG's first quantisation table with id 0 has an average step of at most 2. Reads at most 1 MiB;
  /// false on any failure.
  static bool hasFineJPEGQuantization(const URL& url);
};

struct ImageFacts::Inspection {
  ImageFacts facts;
  ImageProperties properties = {};  ///< of image 0; not of a HEIC file
  std::optional<views::Pair> views = std::nullopt;
  std::shared_ptr<GIFAnimation> animation = nullptr;  ///< of a GIF, with frame 0 drawn
  /// Where the proof is owed: the file, opened. Whoever reads all of its rows has made the proof.
  std::shared_ptr<ImageSource> unproven = nullptr;

  /// Makes a proof that is still owed. Throws as `inspect`.
  void prove() const;
};

}  // namespace tidewell
