// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <span>
#include <string_view>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Locations.h"
#include "TidewellBackground/CommandMode.h"
#include "TidewellBackground/ResidentMode.h"

namespace {

/// A standard descriptor that is closed would be given to the next file that is opened, and the result then
/// be printed into that. Something that can only be used the wrong way round takes its place: using it goes
/// on failing.
void takeClosedDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free number is the one that is given.
    [[maybe_unused]] const int taken = open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  takeClosedDescriptors();
  // Failed writes are told by their error.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    const std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc));
    const tidewell::URL tools = tidewell::locations::toolsDirectory();
    if (argc >= 2 && std::string_view(argv[1]) == "--compress") {
      return tidewell::runCommandMode(arguments.subspan(2), tools);
    }
    return tidewell::runResidentMode(tools);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "TidewellBackground：%s\n", tidewell::localizedDescription(error).c_str());
    return 1;
  }
}
