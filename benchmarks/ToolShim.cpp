// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// Stands in for a tool while the benchmark measures: runs the real one from $TIDEWELL_BENCHMARK_TOOLS and
// appends its wall and CPU seconds to $TIDEWELL_BENCHMARK_LOG.

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int, char** arguments) {
  const char* directory = std::getenv("TIDEWELL_BENCHMARK_TOOLS");
  const char* log = std::getenv("TIDEWELL_BENCHMARK_LOG");
  if (!directory || !log) return 127;
  std::string name = arguments[0];
  name.erase(0, name.rfind('/') + 1);
  // Our own decoder lies above the tools.
  const std::string tool = std::string(directory) + (name == "heic-decoder" ? "/../" : "/") + name;

  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  if (posix_spawn(&child, tool.c_str(), nullptr, nullptr, arguments, environ) != 0) return 127;
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) < 0) return 127;
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;

  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  char line[256];
  const int length = std::snprintf(line, sizeof line, "%s %.6f %.6f\n", name.c_str(), wall.count(),
                                   seconds(usage.ru_utime) + seconds(usage.ru_stime));
  const int file = open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0 || write(file, line, static_cast<std::size_t>(length)) != length) return 127;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
