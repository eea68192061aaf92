// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

/// Byte-level work on JPEG files (ITU-T T.81 markers, CIPA DC-007 multi-picture index, Exif/TIFF).
namespace tidewell::JPEGMetadata {

/// An MPF index in the first MiB announces more than one image; false on every failure.
bool hasMultiplePictures(const URL& url);

/// Makes the JPEG carry the given orientation (1 to 8): a minimal Exif segment after SOI in place of every
/// Exif segment. The file is rewritten, atomically, only when it says something else. Throws
/// `CompressionError` (`validationFailed`, `invalidImage`) or `FileError`.
void preserveOrientation(int orientation, const URL& url, const StopToken& stop = {});

}  // namespace tidewell::JPEGMetadata
