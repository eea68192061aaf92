#pragma once

#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/undo/UndoRecord.h"

namespace tidewell {

/// Puts a candidate in the original's place: backup and prepared record, one rename, verification, commit.
/// Any failure after the backup puts the original back, byte for byte, and is thrown: `CompressionError`
/// (`changedDuringCompression`, `validationFailed`, `fileOperation`) or `FileError`. Returns the record as it
/// was prepared.
UndoRecord replaceOriginal(const CompressionRun& run, const Candidate& choice);

}  // namespace tidewell
