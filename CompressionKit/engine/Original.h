// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A file as a run found it when it began: looked at once, for all steps. They open it again for its pixels
/// and for what one of them alone wants to know, and ask its name whether somebody has changed it.
class Original {
 public:
  /// Throws `CompressionError` unless it is a regular file, what `ImageFacts::inspect` and `HEICDecoding`
  /// throw, and `FileError`.
  Original(const URL& url, const StopToken& stop, const HEICProgram& heicProgram);
  /// The same for any file but a HEIC.
  Original(const URL& url, const StopToken& stop) : Original(url, stop, HEICProgram{}) {}

  const URL& url() const { return url_; }
  /// Before anything read it.
  const files::Times& times() const { return times_; }
  std::int64_t bytes() const { return entry_.bytes; }
  /// Taken before the inspection: while the file has it, it is what was inspected.
  const std::string& hash() const { return hash_; }
  const ImageFacts& facts() const { return inspection_.facts; }
  /// Of image 0; without meaning for a HEIC file.
  const ImageProperties& properties() const { return inspection_.properties; }
  /// Of an image that the metric is not shown whole. They are given away once, for they are large.
  views::Pair takeViews();
  /// Of a GIF, as its inspection left it: given away once, for it holds a whole canvas; then null.
  std::shared_ptr<GIFAnimation> takeAnimation();
  /// Of a HEIC file, for its conversion.
  std::optional<HEICDecoding>& heic() { return heic_; }

  /// Nothing but a change that leaves no trace, for two of them within one tick of the clock, can have
  /// happened to what stands under the name. Throws nothing.
  bool isUntouched() const noexcept;
  /// The bytes under the name are others now. Throws `FileError`.
  bool hasChanged() const;

 private:
  void inspect(const StopToken& stop);

  URL url_;
  files::ResourceValues entry_;
  files::Times times_;
  std::optional<HEICDecoding> heic_;
  std::string hash_;
  ImageFacts::Inspection inspection_;
};

}  // namespace tidewell
