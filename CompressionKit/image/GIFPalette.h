// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <vector>

#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

/// One palette for a whole animation: what a quantiser looks at, and what gifsicle reads.
namespace tidewell::GIFPalette {

/// Which of so many frames are sampled: up to eight, evenly spaced, in ascending order.
std::vector<std::size_t> sampledFrames(std::size_t count);

/// Writes "gif-colour-sample.png" into `directory`: reduced copies of the sampled frames, one above the other
/// (the first at the bottom). Each frame is a single-image file; the others need not exist. Throws
/// `CompressionError::invalidImage`, `Interrupted`, and `FileError` when the disk is full.
URL sample(const std::vector<URL>& frames, const URL& directory, const StopToken& stop = {});

/// Writes the first PLTE chunk of a PNG as a gifsicle colour map: one "red green blue" line per entry.
/// Throws `CompressionError::invalidImage` or `FileError`.
void colourMap(const URL& palettePNG, const URL& destination);

}  // namespace tidewell::GIFPalette
