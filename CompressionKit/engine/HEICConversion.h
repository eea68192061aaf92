// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/engine/CompressionResult.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {

/// A conversion gets the first of so many names that is free.
inline constexpr int maximumConversionNames = 1000;
/// The name beside the original that is tried as this one, counted from 0.
URL conversionURL(const URL& original, int attempt);

/// Saves the HEIC file of the run as a new, compressed PNG beside it, recorded in the engine's undo store,
/// and never touches the file itself. Everything temporary lies in the run's working directory, the attempts
/// at the PNG among it: they are not in the run's trace. Throws `CompressionError`, `FileError`,
/// `Interrupted`; no new PNG stands then, and no record.
CompressionResult convertHEIC(CompressionRun& run, const UUID& sessionID);

}  // namespace tidewell
