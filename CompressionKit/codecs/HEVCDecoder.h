// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

struct heif_decoder_plugin;

namespace tidewell::hevc {

/// The HEVC decoder that libheif is to use: libde265, as in libheif's own decoder, except that a stream with
/// missing or broken data is an error, where that one delivers whatever was in memory.
const heif_decoder_plugin& strictDecoder();

}  // namespace tidewell::hevc
