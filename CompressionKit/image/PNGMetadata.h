// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

/// Byte-level work on PNG files (PNG, Third Edition: chunk layout, eXIf).
namespace tidewell::PNGMetadata {

/// Returns for a well-formed chunk list of a static PNG. Reads chunk headers only. Throws
/// `CompressionError` (`invalidImage`; `fileOperation` for an animated PNG) or `FileError`.
void validateStatic(const URL& url, const StopToken& stop = {});

/// Makes the PNG carry the given orientation (1 to 8) in an eXIf chunk after IHDR; 1 never touches the
/// file. Throws `CompressionError` or `FileError`; the rewrite is atomic.
void preserveOrientation(int orientation, const URL& url, const StopToken& stop = {});

}  // namespace tidewell::PNGMetadata
