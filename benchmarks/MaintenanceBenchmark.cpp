// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// What the maintenance of a store of many old records costs, as a multiple of a bare walk over its tree by
// find(1) in the same run. An empty batch has two passes, one before and one after its files.
//
//   maintenance_benchmark [options of google-benchmark]

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "CompressionKit/batch/BackgroundCompressor.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/undo/UndoStore.h"

namespace {

using namespace tidewell;

constexpr int sessions = 4000;
constexpr int recordsPerSession = 5;

/// Records of days ago without their backups, and a few of today with them.
class OldStore {
 public:
  OldStore() : tree_(make()), store_(tree_.url().appending("Undo")) {
    for (int i = 0; i < sessions; ++i) fill(Date{0}, false);
    for (int i = 0; i < 10; ++i) fill(Date::now(), true);
  }
  const UndoStore& store() const { return store_; }
  const URL& folder() const { return tree_.url(); }

 private:
  static URL make() {
    std::string pattern = locations::temporaryDirectory().appending("tidewell-benchmark-XXXXXX").path();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
    return URL::file(pattern);
  }
  void fill(Date createdAt, bool withBackups) const {
    UndoRecord record;
    record.sessionID = UUID::random();
    record.createdAt = createdAt;
    record.originalPath = "/home/somebody/Pictures/2024/holidays/IMG_4711.jpg";
    record.replacementHash = std::string(64, '0');
    record.originalHash = record.replacementHash;
    record.state = UndoRecord::State::committed;
    const URL session = store_.root().appending(record.sessionID.string());
    files::createDirectories(session, 0700, files::Durability::cached);
    for (int i = 0; i < recordsPerSession; ++i) {
      record.id = UUID::random();
      record.backupName = record.id.string() + ".jpg";
      const URL file = session.appending(record.id.string() + ".json");
      files::writeAtomically(file, record.json(), files::Durability::cached);
      if (withBackups) files::writeAtomically(store_.backupURL(record), "x", files::Durability::cached);
    }
  }

  files::TemporaryTree tree_;
  UndoStore store_;
};

const OldStore& oldStore() {
  static const OldStore store;
  return store;
}

/// Seconds that `work` takes.
template <typename Work>
double timed(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void walk(std::string root) {
  char find[] = "find", type[] = "-type", file[] = "f";
  char* arguments[] = {find, root.data(), type, file, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  if (posix_spawnp(&child, "find", &actions, nullptr, arguments, environ) != 0)
    throw std::runtime_error("find");
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) throw std::runtime_error("find");
}

/// Each time beside a walk of the moment before: both meet the machine in the same state.
template <typename Work>
void againstAWalk(benchmark::State& state, const Work& work) {
  const std::string root = oldStore().store().root().path();
  double walks = 0, total = 0;
  for (auto _ : state) {
    walks += timed([&] { walk(root); });
    const double seconds = timed(work);
    total += seconds;
    state.SetIterationTime(seconds);
  }
  state.counters["bareWalks"] = total / walks;
}

void emptyBatch(benchmark::State& state) {
  CompressionQueue queue(1, oldStore().folder().appending("Locks"));
  BackgroundCompressor compressor(CompressionEngine(ToolRunner(oldStore().folder()), oldStore().store(), {}),
                                  queue);
  againstAWalk(state, [&] { benchmark::DoNotOptimize(compressor.compress({})); });
}
BENCHMARK(emptyBatch)->UseManualTime()->Unit(benchmark::kMillisecond);

void residentPass(benchmark::State& state) {
  CompressionQueue queue(1, oldStore().folder().appending("Locks"));
  BackgroundCompressor compressor(CompressionEngine(ToolRunner(oldStore().folder()), oldStore().store(), {}),
                                  queue);
  againstAWalk(state, [&] { benchmark::DoNotOptimize(compressor.maintainBackups()); });
}
BENCHMARK(residentPass)->UseManualTime()->Unit(benchmark::kMillisecond);

void listing(benchmark::State& state) {
  againstAWalk(state, [] { benchmark::DoNotOptimize(oldStore().store().records()); });
}
BENCHMARK(listing)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
