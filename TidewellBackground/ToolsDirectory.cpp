#include "TidewellBackground/ToolsDirectory.h"

#include "CompressionKit/platform/Files.h"

namespace tidewell {

URL toolsDirectory() {
  return files::executableDirectory().appending("../lib/tidewell/tools").standardized();
}

}  // namespace tidewell
