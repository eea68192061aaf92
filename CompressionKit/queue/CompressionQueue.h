// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/Task.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Decides when a file may be compressed: at most `limit()` at once, never two on one file, in this process
/// and, through lock files, across processes. Waiting jobs are served in arrival order; a job whose file is
/// busy is passed over. Jobs run on at most `limit()` worker threads of the queue, made when they are first
/// needed with the signal mask of the thread that queues. Any thread may call any operation.
class CompressionQueue {
 public:
  static constexpr int maximumConcurrentTasks = 10;
  /// max(1, min(cores / 2, memory / 4 GiB, 4)).
  static int recommendedConcurrentTasks(unsigned cores, std::uint64_t memoryBytes);
  /// The same for the cores that this process may run on and the memory installed in the machine; computed
  /// once.
  static int recommendedConcurrentTasks();

  /// The executable's one queue, made on first use with the recommended limit and default directory. The
  /// program's exit waits for its running jobs.
  static CompressionQueue& shared();

  /// `maxConcurrentTasks` is brought between 1 and `maximumConcurrentTasks`. Without a directory:
  /// "Tidewell/CompressionLocks" in Application Support. Creates no directory.
  explicit CompressionQueue(int maxConcurrentTasks, std::optional<URL> coordinationDirectory = std::nullopt);
  /// Waits for running jobs; waiting ones fail with `Interrupted`. Not to be called by a job.
  ~CompressionQueue();
  CompressionQueue(const CompressionQueue&) = delete;
  CompressionQueue& operator=(const CompressionQueue&) = delete;

  int limit() const;
  const URL& coordinationDirectory() const;

  /// The key under which two forms of one path are the same file.
  static std::string fileIdentity(const URL& url);

  /// Queues one job. `onStart` (which may be empty) is called once when the job has its permit, then
  /// `operation`, both on a worker thread. The future gives the operation's value or error, or the permit's
  /// error; it is ready only when the file is free again. Returns without waiting for any job. A stop of the
  /// token makes this job fail with `Interrupted` once its turn comes, or while it waits for its permit.
  template <typename Operation>  // NOLINTNEXTLINE(performance-unnecessary-value-param): it is moved on
  auto run(const URL& url, std::function<void()> onStart, Operation operation, const StopToken& stop = {})
      -> std::future<std::invoke_result_t<Operation&>> {
    auto task = std::make_unique<Task<Operation>>(std::move(operation));
    auto future = task->promise.get_future();
    enqueue(url, std::move(onStart), std::move(task), stop);
    return future;
  }

  /// Ends the queue early: waiting jobs, and jobs that wait for a permit, fail with `Interrupted`; running
  /// operations run to their end. Later jobs fail at once.
  void stop();

 private:
  void enqueue(const URL& url, std::function<void()> onStart, std::unique_ptr<AnyTask> task,
               const StopToken& stop);

  struct Job;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tidewell
