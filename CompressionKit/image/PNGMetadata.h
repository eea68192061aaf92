#pragma once

#include "CompressionKit/platform/URL.h"

/// Byte-level work on PNG files (PNG, Third Edition: chunk layout, eXIf).
namespace tidewell::PNGMetadata {

/// Returns for a well-formed chunk list of a static PNG. Reads chunk headers only. Throws
/// `CompressionError` (`invalidImage`; `fileOperation` for an animated PNG) or `FileError`.
void validateStatic(const URL& url);

/// Makes the PNG carry the given orientation (1 to 8) in an eXIf chunk after IHDR; 1 never touches the
/// file. Throws `CompressionError` or `FileError`; the rewrite is atomic.
void preserveOrientation(int orientation, const URL& url);

}  // namespace tidewell::PNGMetadata
