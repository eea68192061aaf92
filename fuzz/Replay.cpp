// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "CompressionKit/platform/Files.h"
#include "support/Target.h"

/// Runs the target once for each file in the folders that are named. A folder that is missing is one in which
/// nothing was found yet.
int main(int count, char** arguments) {
  namespace fs = std::filesystem;
  std::set<fs::path> files;
  for (int i = 1; i < count; ++i) {
    if (!fs::is_directory(arguments[i])) continue;
    for (const auto& entry : fs::directory_iterator(arguments[i])) files.insert(entry.path());
  }
  for (const fs::path& file : files) {
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // the last one named is the one that ended us
    const std::string bytes = tidewell::files::read(tidewell::URL::file(file.string()));
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  // There are no seeds of a kind that nothing here can write, which must not be where the tools are required.
  const char* required = std::getenv("TIDEWELL_REQUIRE_TOOLS");
  constexpr int skipped = 77;
  return !files.empty() ? 0 : required && *required == '1' ? 1 : skipped;
}
