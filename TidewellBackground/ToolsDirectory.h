#pragma once

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Where the command-line tools lie.
URL toolsDirectory();

}  // namespace tidewell
