// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>
#include <string_view>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A proven copy of a backup beside the place it goes to, ".tidewell-restore-<UUID>"; it disappears unless it
/// was moved there.
class RestoreTemporary {
 public:
  /// Throws `FileError`, and `CompressionError::validationFailed` when the copy is not what was read.
  RestoreTemporary(const URL& backup, const std::string& backupHash, const URL& original);

  const URL& url() const { return file_.url(); }

  /// Has the name of such a file, to the letter.
  static bool isName(std::string_view name);

 private:
  files::TemporaryTree file_;
};

}  // namespace tidewell
