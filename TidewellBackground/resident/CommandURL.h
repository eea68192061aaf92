// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <vector>

#include "CompressionKit/platform/URL.h"
#include "TidewellBackground/resident/Desktop.h"

namespace tidewell {

/// The files that a command URL lists, tidewell-background://compress?token=…&files=…, in its order. "files"
/// is strict base64 (RFC 4648) of a JSON array of strings; those that are not absolute paths are left out.
/// Empty for any other URL, a wrong token or broken data.
std::vector<URL> filesOfCommand(const URL& url, TokenSource& tokens);

}  // namespace tidewell
