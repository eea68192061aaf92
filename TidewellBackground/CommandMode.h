// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <span>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Compresses files as one batch and prints the result as one line of JSON. `arguments` are those that follow
/// "--compress": ["--undo-root" DIRECTORY] FILE...
///
/// Returns the exit status: 1 when a file failed or the result could not be printed (which is said on
/// standard error), else 0. On SIGINT, SIGTERM or SIGHUP the batch ends early, what was done is printed, and
/// the status is 128 + the signal's number. Call it before any thread exists, with SIGPIPE ignored.
int runCommandMode(std::span<const char* const> arguments, const URL& tools);

}  // namespace tidewell
