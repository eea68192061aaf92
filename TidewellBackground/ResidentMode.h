// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Runs the resident application until it ends itself or is told to by a signal. Returns the exit status: 1
/// without a session bus, which is said on standard error, 0 otherwise, also when another process is the
/// resident one already. Call it before any thread exists, with SIGPIPE ignored.
int runResidentMode(const URL& tools);

}  // namespace tidewell
