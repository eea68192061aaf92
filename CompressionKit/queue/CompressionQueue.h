#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Decides when a file may be compressed: at most `limit()` at once, never two on one file, in this process
/// and, through lock files, across processes. Waiting jobs are served in arrival order; a job whose file is
/// busy is passed over. Jobs run on at most `limit()` worker threads of the queue.
class CompressionQueue {
 public:
  static constexpr int maximumConcurrentTasks = 10;
  /// max(1, min(cores / 2, memory / 4 GiB, 4)).
  static int recommendedConcurrentTasks(unsigned cores, std::uint64_t memoryBytes);
  static int recommendedConcurrentTasks();

  /// The executable's one queue, made on first use with the recommended limit and default directory.
  static CompressionQueue& shared();

  /// Without a directory: "Tidewell/CompressionLocks" in Application Support. Creates no directory.
  explicit CompressionQueue(int maxConcurrentTasks, std::optional<URL> coordinationDirectory = std::nullopt);
  /// Waits for running jobs; waiting ones fail with `Interrupted`.
  ~CompressionQueue();
  CompressionQueue(const CompressionQueue&) = delete;
  CompressionQueue& operator=(const CompressionQueue&) = delete;

  int limit() const;
  const URL& coordinationDirectory() const;

  /// The key under which two forms of one path are the same file.
  static std::string fileIdentity(const URL& url);

  /// Queues one job. `onStart` is called once when the job has its permit, then `operation`, both on a
  /// worker thread. The future gives the operation's value or error, or the permit's error; it is ready
  /// only when the file is free again. Returns without blocking.
  template <typename Operation>
  auto run(const URL& url, std::function<void()> onStart, Operation operation)
      -> std::future<std::invoke_result_t<Operation>> {
    using Result = std::invoke_result_t<Operation>;
    auto task = std::make_shared<Task<Result>>(std::move(operation));
    auto future = task->promise.get_future();
    enqueue(url, std::move(onStart), std::move(task));
    return future;
  }

  /// Ends the queue early: waiting jobs, and jobs that wait for a permit, fail with `Interrupted`; running
  /// operations run to their end. Later jobs fail at once.
  void stop();

 private:
  /// A job's work with its outcome, the result type forgotten.
  struct AnyTask {
    virtual ~AnyTask() = default;
    virtual void perform() noexcept = 0;                       ///< runs the operation and keeps its outcome
    virtual void fail(std::exception_ptr error) noexcept = 0;  ///< keeps an error instead
    virtual void resume() noexcept = 0;                        ///< hands the outcome to the caller
  };
  template <typename Result>
  struct Task final : AnyTask {
    explicit Task(std::function<Result()> work) : operation(std::move(work)) {}
    void perform() noexcept override {
      try {
        if constexpr (std::is_void_v<Result>) {
          operation();
        } else {
          value.emplace(operation());
        }
      } catch (...) {
        error = std::current_exception();
      }
    }
    void fail(std::exception_ptr failure) noexcept override { error = std::move(failure); }
    void resume() noexcept override {
      if (error) {
        promise.set_exception(error);
      } else if constexpr (std::is_void_v<Result>) {
        promise.set_value();
      } else {
        promise.set_value(std::move(*value));
      }
    }
    std::function<Result()> operation;
    std::promise<Result> promise;
    std::conditional_t<std::is_void_v<Result>, bool, std::optional<Result>> value{};
    std::exception_ptr error;
  };

  void enqueue(const URL& url, std::function<void()> onStart, std::shared_ptr<AnyTask> task);

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tidewell
