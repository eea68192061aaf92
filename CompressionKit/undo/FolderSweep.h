// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <mutex>
#include <string>
#include <unordered_set>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Seconds after which an abandoned working directory goes, counted from its last change. It is recognised by
/// its lock, but on a network file system the lock of another machine may be invisible here.
inline constexpr double workingDirectoryRetention = 3600;

/// Looks after what killed processes of this user left among the user's files in `folder`. Somebody's work
/// that was displaced in the moment of the crash is brought back at once; then working directories of
/// `workingDirectoryRetention` and temporary files of a restore of `UndoStore::backupRetention` go.
void sweepFolder(const URL& folder, Date now = Date::now()) noexcept;

/// Sweeps each folder once for a batch: a folder of thousands of photos is not listed for each of them. Any
/// thread may call it.
class FolderSweeps {
 public:
  void sweepOnce(const URL& folder);

 private:
  std::mutex mutex_;
  std::unordered_set<std::string> swept_;
};

}  // namespace tidewell
