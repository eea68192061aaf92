#pragma once

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Where the command-line tools lie: the one place that knows the layout of build tree and installed tree.
URL toolsDirectory();

}  // namespace tidewell
