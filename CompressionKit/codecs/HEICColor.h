// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <libheif/heif.h>

#include <optional>
#include <string>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/HEVCUnits.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/StandardRange.h"

namespace tidewell::heif {

/// What a HEIF image says of its colours: an embedded ICC profile, or code points of ITU-T H.273 ("nclx").
struct Color {
  ColorTag tag;  ///< of the samples as we deliver them
  std::optional<std::string> profileName;
  std::optional<std::string> colorSpaceName;
  struct HDR {
    StandardRange::Transfer transfer;
    color::Chromaticities primaries;
  };
  std::optional<HDR> hdr;  ///< to be brought to standard range
};

/// By the file's colour box, or by what the stream says where there is no box. Throws `ImageDecodeError` for
/// a profile beyond `ImageLimits::maximumMetadataBytes`.
Color colorOf(const heif_image_handle* handle, const std::optional<hevc::Sequence::Colors>& stream);

}  // namespace tidewell::heif
