// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "CompressionKit/codecs/Bitmap.h"
#include "CompressionKit/codecs/ImageInput.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The rows of one image, 4 bytes for each pixel, in a file without a name that goes with this object.
class RowFile {
 public:
  /// A file in `directory`. Throws `FileError`: ENOSPC where less than twice the size of the rows is free.
  /// Their room is set aside at once, where the file system can.
  RowFile(const URL& directory, std::int64_t width, std::int64_t height);

  /// The rows come in order. Throws `FileError`.
  void append(std::span<const std::uint8_t> rows);
  /// Pixels of a part that has been written, without a colour tag. Any thread may ask. Throws `FileError`.
  Bitmap part(const Rectangle& part) const;

 private:
  URL directory_;
  std::int64_t width_;
  std::optional<ImageInput> file_;
};

}  // namespace tidewell
