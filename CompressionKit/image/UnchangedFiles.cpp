// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/UnchangedFiles.h"

#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"

namespace tidewell {

UnchangedFiles::UnchangedFiles(URL original, URL compressed, const std::optional<std::string>& originalHash,
                               const std::optional<std::string>& compressedHash)
    : original_(std::move(original)),
      compressed_(std::move(compressed)),
      originalHash_(hash(original_)),
      compressedHash_(hash(compressed_)) {
  if (originalHash.value_or(originalHash_) != originalHash_ ||
      compressedHash.value_or(compressedHash_) != compressedHash_) {
    throw CompressionError::fileOperation("图片文件已被修改，无法对比");
  }
}

void UnchangedFiles::check() const {
  const std::string originalNow = hash(original_), compressedNow = hash(compressed_);
  if (originalNow != originalHash_ || compressedNow != compressedHash_) {
    throw CompressionError::fileOperation("图片文件在载入过程中被修改，请重新打开对比");
  }
}

}  // namespace tidewell
