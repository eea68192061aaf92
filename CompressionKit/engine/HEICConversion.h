#pragma once

#include "CompressionKit/engine/CompressionResult.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {

/// Saves the HEIC file of the run as a new, compressed PNG beside it, recorded in the engine's undo store,
/// and never touches the file itself. Everything temporary lies in the run's working directory, the attempts
/// at the PNG among it: they are not in the run's trace. Throws `CompressionError`, `FileError`,
/// `Interrupted`; no new PNG stands then, and no record.
CompressionResult convertHEIC(CompressionRun& run, const UUID& sessionID);

}  // namespace tidewell
