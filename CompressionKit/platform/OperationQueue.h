// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CompressionKit/platform/Task.h"

namespace tidewell {

/// Runs operations on threads of its own, a limited number at once, the most urgent first and those of equal
/// priority in the order in which they came. Threads are made when they are first needed. Any thread may add.
class OperationQueue {
 public:
  enum class Priority { veryLow = -8, low = -4, normal = 0, high = 4, veryHigh = 8 };

  /// Debuggers show the last part of a dotted `name` for the threads.
  OperationQueue(std::string name, std::size_t maximumConcurrentOperations)
      : name_(std::move(name)), maximum_(maximumConcurrentOperations) {}
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;
  /// Returns when every operation has run.
  ~OperationQueue();

  const std::string& name() const { return name_; }
  std::size_t maximumConcurrentOperations() const { return maximum_; }

  /// The future gets the operation's value or exception once the operation, with all it held, is gone.
  /// There is no way to take an operation back.
  template <typename Operation>
  auto add(Priority priority, Operation operation) {
    auto task = std::make_unique<Task<Operation>>(std::move(operation));
    auto future = task->promise.get_future();
    enqueue(priority, std::move(task));
    return future;
  }

 private:
  struct Entry {
    Priority priority;
    std::uint64_t number;
    std::unique_ptr<AnyTask> task;
    /// Of a heap with the greatest on top.
    bool operator<(const Entry& other) const {
      return priority != other.priority ? priority < other.priority : number > other.number;
    }
  };

  void enqueue(Priority priority, std::unique_ptr<AnyTask> task);
  void work();

  const std::string name_;
  const std::size_t maximum_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Entry> waiting_;  ///< a heap
  std::uint64_t added_ = 0;
  std::size_t idle_ = 0;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace tidewell
