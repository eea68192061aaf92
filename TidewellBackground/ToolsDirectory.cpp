#include "TidewellBackground/ToolsDirectory.h"

#include "CompressionKit/platform/Files.h"

namespace tidewell {

URL toolsDirectory() {
  return files::programsDirectory().appending("tools");
}

}  // namespace tidewell
