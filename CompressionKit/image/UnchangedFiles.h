// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// An original (or its backup) and what was made of it, as they must stay while they are compared.
class UnchangedFiles {
 public:
  /// Hashes both; a hash that is not given is not compared. Throws `CompressionError::fileOperation` when one
  /// is not what it should be, `FileError` for a file that cannot be hashed.
  UnchangedFiles(URL original, URL compressed, const std::optional<std::string>& originalHash,
                 const std::optional<std::string>& compressedHash);

  const URL& original() const { return original_; }
  const URL& compressed() const { return compressed_; }
  /// Hashes both again. Throws `CompressionError::fileOperation` when one has changed, and as above.
  void check() const;

 private:
  URL original_, compressed_;
  std::string originalHash_, compressedHash_;
};

}  // namespace tidewell
