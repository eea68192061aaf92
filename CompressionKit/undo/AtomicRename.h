// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/platform/URL.h"

namespace tidewell {

// The only ways a file is moved onto a user's path. All flush the directories after the move, the first two
// also the file before, so that a power loss leaves one whole file under the name.

/// Replaces `destination` by `source` in one step. Throws `CompressionError::fileOperation`.
void atomicRename(const URL& source, const URL& destination);

/// Moves `source` to `destination` only if nothing is there; false when something is. Where the file system
/// has no exclusive rename, link(2) is as exclusive. Throws `CompressionError::fileOperation`.
bool atomicRenameIfAbsent(const URL& source, const URL& destination);

enum class Exchange {
  done,
  unsupported,  ///< by this file system or kernel; nothing was moved
  vanished,     ///< one of the names; nothing was moved
};
/// Lets the file that waits at `waiting`, flushed by the caller, and whatever stands at `destination` change
/// places in one step, so that nothing is overwritten: what was displaced can be looked at. Throws
/// `CompressionError::fileOperation` as `atomicRename` does.
Exchange atomicExchange(const URL& waiting, const URL& destination);

}  // namespace tidewell
