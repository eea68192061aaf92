// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdlib>
#include <string_view>
#include <utility>

#include "CompressionKit/platform/Process.h"
#include "CompressionKit/tools/ToolRunner.h"

namespace tidewell {
namespace {

/// The encoders allocate whole images, again and again, and live for seconds: a third of what ssimulacra2
/// costs is page faults, because the C library returns each freed buffer to the kernel at once.
///
/// Measured as processor time against the C library's defaults: ssimulacra2 0.65 (8 megapixels) to 0.72 (a
/// small animation frame), cjpegli 0.80; large pages alone reach 0.70 to 0.85 and 0.85. oxipng and gifsicle
/// are neutral. The peak of memory grows by two per cent, or a few MiB for small images.
///
/// The OpenMP runtime of pngquant lets waiting threads spin, which beside other jobs costs more than it
/// gains: asleep, they bring its time down to between 0.4 (beside other work) and 1.0 (alone).
constexpr std::pair<const char*, const char*> settings[] = {
    {"GLIBC_TUNABLES",
     "glibc.malloc.hugetlb=1"                   // ask for large pages: up to 512 times fewer faults
     ":glibc.malloc.mmap_max=0"                 // no mapping per buffer: what is freed is used again
     ":glibc.malloc.trim_threshold=4294967295"  // and stays with the tool until its end
     ":glibc.malloc.top_pad=16777216"},         // room is asked for in large pieces
    {"OMP_WAIT_POLICY", "passive"},
};

}  // namespace

std::vector<std::string> toolEnvironment() {
  std::vector<std::string> environment = currentEnvironment();
  for (const auto& [name, value] : settings) {
    if (!std::getenv(name)) environment.push_back(std::string(name) + "=" + value);
  }
  return environment;
}

}  // namespace tidewell
