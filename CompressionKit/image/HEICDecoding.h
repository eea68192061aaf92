// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>

#include "CompressionKit/codecs/ImageInput.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The program that decodes HEIC files, our own.
struct HEICProgram {
  URL url = locations::programsDirectory().appending("heic-decoder");
  double timeout = 180;  ///< seconds that one file may take
};

/// A HEIC file, decoded once by a program of its own, which may touch nothing but that file, its answer and
/// the PNG that it writes. What ends it early (a crash, a limit, the time) or makes it say nonsense makes the
/// file one that cannot be decoded.
///
/// The PNG is a file without a name on the file system of the HEIC file, where that can be, so that it fills
/// no memory and gets its name for nothing; it goes with this object.
class HEICDecoding {
 public:
  enum class Purpose {
    inspect,  ///< image 0 is decoded, and no PNG written
    convert,  ///< the same, with a PNG of a file's only image
    show,     ///< only the primary image is decoded, for its PNG
  };
  /// Blocks until the program has ended. Throws `CompressionError` (`invalidImage`, `formatMismatch`,
  /// `toolMissing` without the program), `FileError` when it cannot be started, `Interrupted`.
  HEICDecoding(const URL& url, Purpose purpose, const StopToken& stop = {}, const HEICProgram& program = {});

  const ImageFacts& facts() const { return facts_; }
  /// To convert: the SHA-256 of the file that was decoded, from before that. Another may have the name.
  const std::string& hash() const { return hash_; }
  /// The image, upright. Throws `CompressionError::invalidImage` when there is none, for want of space
  /// perhaps.
  const ImageInput& png() const;
  /// Gives it that name, once: it is not open any more afterwards. Throws as `png`, and when it cannot.
  void savePNG(const URL& url);

 private:
  void run(const HEICProgram& program, Purpose purpose, const ImageInput& heic, const StopToken& stop);

  ImageFacts facts_;
  std::string hash_;
  std::optional<ImageInput> png_;
};

}  // namespace tidewell
