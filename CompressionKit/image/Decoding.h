// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cerrno>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageProperties.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell {

/// Runs work that decodes images or writes what was decoded. What fails of it reads as
/// `CompressionError::invalidImage`, but a full disk, which is worth its own words.
template <typename Work>
auto decoding(const Work& work) {
  try {
    return work();
  } catch (const ImageDecodeError&) {
    throw CompressionError::invalidImage();
  } catch (const FileError& error) {
    if (error.code() == ENOSPC || error.code() == EDQUOT) throw;
    throw CompressionError::invalidImage();
  }
}

}  // namespace tidewell
