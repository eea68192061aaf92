#pragma once

#include "CompressionKit/platform/URL.h"

namespace tidewell {

// The only two ways a file is moved onto a user's path. Both flush the file before and its directory after
// the move, so that a power loss leaves one whole file under the name.

/// Replaces `destination` by `source` in one step. Throws `CompressionError::fileOperation`.
void atomicRename(const URL& source, const URL& destination);

/// Moves `source` to `destination` only if nothing is there; false when something is. Throws
/// `CompressionError::fileOperation`. There is no fallback for file systems without an exclusive rename.
bool atomicRenameIfAbsent(const URL& source, const URL& destination);

}  // namespace tidewell
