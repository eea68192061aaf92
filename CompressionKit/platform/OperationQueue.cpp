// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/OperationQueue.h"

#include <pthread.h>

#include <algorithm>

namespace tidewell {

OperationQueue::~OperationQueue() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void OperationQueue::enqueue(Priority priority, std::unique_ptr<AnyTask> task) {
  const std::lock_guard lock(mutex_);
  if (idle_ <= waiting_.size() && threads_.size() < maximum_) {
    try {
      threads_.emplace_back([this] { work(); });
    } catch (...) {
      if (threads_.empty()) throw;  // otherwise those that run get to it
    }
  }
  waiting_.push_back({priority, added_++, std::move(task)});
  std::push_heap(waiting_.begin(), waiting_.end());
  changed_.notify_one();
}

void OperationQueue::work() {
  pthread_setname_np(pthread_self(), name_.substr(name_.rfind('.') + 1, 15).c_str());
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
    --idle_;
    if (waiting_.empty()) return;
    std::pop_heap(waiting_.begin(), waiting_.end());
    const std::unique_ptr<AnyTask> task = std::move(waiting_.back().task);
    waiting_.pop_back();
    lock.unlock();
    task->perform();
    task->resume();
    lock.lock();
  }
}

}  // namespace tidewell
