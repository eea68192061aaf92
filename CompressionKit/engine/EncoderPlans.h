// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/engine/CompressionRun.h"

namespace tidewell {

// One plan per kind: the ladder of encoder steps that fills the run's list of candidates. A step that throws
// is recorded and does not end the plan; only a stop request does. Each throws
// `CompressionError::toolMissing` before anything runs when the tools it cannot do without are not there.

/// A search for the lowest quality whose perceptual score passes, per chroma subsampling.
void runJPEGPlan(CompressionRun& run);

/// Palette quantisation first, lossless optimisation of its result or of the original after it.
void runPNGPlan(CompressionRun& run);

/// Lossless optimisation, lossy levels, then one shared palette for all frames.
void runGIFPlan(CompressionRun& run);

}  // namespace tidewell
