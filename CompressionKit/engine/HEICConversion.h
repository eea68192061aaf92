#pragma once

#include <cstdint>
#include <string>

#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/engine/CompressionResult.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {

/// Saves the HEIC file `url` as a new, compressed PNG beside it, recorded in the engine's undo store, and
/// never touches the file itself. `decoding`, `originalBytes` and `originalHash` are what the run found at
/// its start, the PNG moves on from the first; everything temporary lies in `workingDirectory`, which must be
/// on the file's file system. Throws `CompressionError`, `FileError`, `Interrupted`; no new PNG stands then,
/// and no record.
CompressionResult compressHEIC(const CompressionEngine& engine, const URL& url, HEICDecoding& decoding,
                               std::int64_t originalBytes, const std::string& originalHash,
                               const UUID& sessionID, const std::optional<files::Times>& times,
                               const URL& workingDirectory);

}  // namespace tidewell
