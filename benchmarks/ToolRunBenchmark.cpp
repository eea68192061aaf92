// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// What one tool run costs over a bare spawn of the same program.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/tools/ToolRunner.h"

namespace {

void bareSpawn(benchmark::State& state) {
  char name[] = "true";
  char* arguments[] = {name, nullptr};
  for (auto _ : state) {
    pid_t child = 0;
    if (posix_spawn(&child, "/usr/bin/true", nullptr, nullptr, arguments, environ) != 0) {
      state.SkipWithError("posix_spawn failed");
      break;
    }
    waitpid(child, nullptr, 0);
  }
}
BENCHMARK(bareSpawn)->UseRealTime()->Unit(benchmark::kMillisecond);

void toolRun(benchmark::State& state) {
  // A service that has decoded large images: spawning must not cost what copying its page tables costs.
  const std::vector<char> resident(static_cast<std::size_t>(state.range(0)) << 20, 1);
  const tidewell::ToolRunner tools(tidewell::URL::file("/usr/bin"));
  tidewell::Confinement files{.readable = {tidewell::URL::file("/etc/passwd")},
                              .writable = {tidewell::URL::file("/tmp")}};
  if (state.range(1) == 0) files.means = {};
  for (auto _ : state) benchmark::DoNotOptimize(tools.run("true", {}, 180, files));
}
BENCHMARK(toolRun)
    ->ArgsProduct({{0, 256}, {0, 1}})
    ->ArgNames({"residentMiB", "confined"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
