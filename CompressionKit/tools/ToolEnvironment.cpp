#include <cstdlib>

#include "CompressionKit/platform/Process.h"
#include "CompressionKit/tools/ToolRunner.h"

namespace tidewell {

std::vector<std::string> toolEnvironment() {
  std::vector<std::string> environment = currentEnvironment();
  if (!std::getenv("GLIBC_TUNABLES")) environment.emplace_back("GLIBC_TUNABLES=glibc.malloc.hugetlb=1");
  return environment;
}

}  // namespace tidewell
