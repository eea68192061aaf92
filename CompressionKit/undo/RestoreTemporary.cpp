// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/RestoreTemporary.h"

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

constexpr std::string_view prefix = ".tidewell-restore-";

}  // namespace

RestoreTemporary::RestoreTemporary(const URL& backup, const std::string& backupHash, const URL& original)
    : file_(original.deletingLastPathComponent().appending(std::string(prefix) + UUID::random().string())) {
  files::copyItem(backup, file_.url());
  if (hash(file_.url()) != backupHash) throw CompressionError::validationFailed();
}

bool RestoreTemporary::isName(std::string_view name) {
  return name.starts_with(prefix) && UUID::isCanonical(name.substr(prefix.size()));
}

}  // namespace tidewell
