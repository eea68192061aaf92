// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

struct CompressionRun;

/// All that the engine treats differently by the kind of an image. What the files of a kind look like is the
/// matter of `ImageKind` and of `codecs/`.
struct FormatPolicy {
  /// `found` is what the gate has seen of the candidate.
  using Comparison = bool (*)(const URL& original, const URL& candidate, const ImageFacts::Inspection& found,
                              const StopToken& stop);

  void (*plan)(CompressionRun& run);
  /// The lowest score of a lossy output, or of each frame of one, where its step asks for no other.
  double CompressionEngine::Thresholds::*threshold;
  /// The plan itself compares sizes: an output that is not smaller tells it where to search.
  bool judgesLargerOutputs = false;
  /// Writes the original's orientation into a lossy or stripped output; none for kinds without.
  void (*preserveOrientation)(int orientation, const URL& output, const StopToken& stop) = nullptr;
  bool isAnimation = false;           ///< its frames are compared and scored one by one
  bool saysItsColors = true;          ///< files of this kind carry profiles
  bool mayBeConvertedToSRGB = false;  ///< by a lossy step
  /// The comparisons read all rows of a candidate, so that its soundness need not be proven before.
  ImageFacts::Proof proof = ImageFacts::Proof::made;
  /// Proves a lossless output. A kind of still images without can have none, and cannot be stripped.
  Comparison samePixels = nullptr;
  /// Judges the alpha of a lossy output, which the score does not; none for kinds without.
  Comparison alphaSurvives = nullptr;
};

/// A kind without a row does not compile. Throws for a kind that is never recompressed in place.
const FormatPolicy& formatPolicy(ImageKind kind);

}  // namespace tidewell
