// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Gives the paths of a batch one by one, nothing after the last. It may block, and throw `FileError`.
using PathSource = std::function<std::optional<std::string>()>;

PathSource namedPaths(std::vector<std::string> paths);
/// Paths that end with a NUL byte (the last may end with the file), read as they are asked for, empty ones
/// left out. `file` is for messages. A stop of the token ends the list.
PathSource nulSeparatedPaths(Descriptor descriptor, URL file, StopToken stop = {});

}  // namespace tidewell
