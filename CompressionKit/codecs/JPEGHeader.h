// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdio>
#include <string>

#include "CompressionKit/codecs/Exif.h"
#include "CompressionKit/platform/Stop.h"

namespace tidewell {

/// The metadata of a JPEG that libjpeg would hold in memory whatever its size: read with limits of our own.
struct JPEGHeader {
  Exif exif;        ///< of the first Exif segment
  std::string icc;  ///< put together from its segments (ICC.1, annex B.4); empty when incomplete
};

/// Reads the segments before the first scan. Stops quietly at anything malformed: whether the file is sound
/// is the decoder's business. Throws `Interrupted`.
JPEGHeader readJPEGHeader(std::FILE* file, const StopToken& stop);

}  // namespace tidewell
