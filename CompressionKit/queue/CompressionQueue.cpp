// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/queue/CompressionQueue.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Machine.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/queue/ExecutionPermit.h"

namespace tidewell {

struct CompressionQueue::Job {
  std::string key;
  std::function<void()> onStart;
  std::unique_ptr<AnyTask> task;
  StopToken stop;

  /// Everything between the start of the job and the freeing of its key.
  void perform(const URL& directory, int capacity, const StopToken& queueStop) noexcept {
    try {
      stop.throwIfStopped();
      const StopSource either(queueStop, stop);
      ExecutionPermit permit(directory, key, capacity, either.token());
      if (onStart) onStart();
      task->perform();
      permit.release();
    } catch (...) {
      task->fail(std::current_exception());
    }
    onStart = nullptr;  // what it holds is gone when the caller goes on
  }
};

struct CompressionQueue::Impl {
  const int limit;
  const URL coordinationDirectory;
  StopSource stopSource;

  std::mutex mutex;
  std::condition_variable wake;  ///< a job became ready, or the queue is stopped
  bool stopped = false;
  std::vector<std::thread> workers;
  std::size_t idleWorkers = 0;

  // Waiting jobs by arrival number; of each key that is not active, the first one stands in `ready` too.
  // So the next job to start is found without passing over all that wait for busy files.
  std::uint64_t arrivals = 0;
  std::map<std::uint64_t, Job> pending;
  std::map<std::uint64_t, Job*> ready;
  std::unordered_map<std::string, std::list<std::uint64_t>> pendingByKey;
  std::unordered_set<std::string> activeKeys;

  Impl(int maxConcurrentTasks, URL directory)
      : limit(std::clamp(maxConcurrentTasks, 1, maximumConcurrentTasks)),
        coordinationDirectory(std::move(directory)) {}

  // Below with the mutex held.

  void append(Job job) {
    const std::uint64_t number = ++arrivals;
    auto& ofKey = pendingByKey[job.key];
    ofKey.push_back(number);
    const auto position = pending.emplace(number, std::move(job)).first;
    if (ofKey.size() == 1 && !activeKeys.contains(position->second.key)) {
      ready.emplace(number, &position->second);
    }
  }

  /// Takes the first waiting job whose file is free and marks its key as active; nothing when there is none.
  std::optional<Job> startNextReadyJob() {
    if (ready.empty()) return std::nullopt;
    const std::uint64_t number = ready.begin()->first;
    ready.erase(ready.begin());
    const auto position = pending.find(number);
    Job job = std::move(position->second);
    pending.erase(position);
    const auto ofKey = pendingByKey.find(job.key);
    ofKey->second.pop_front();
    if (ofKey->second.empty()) pendingByKey.erase(ofKey);
    activeKeys.insert(job.key);
    return job;
  }

  void free(const std::string& key) {
    activeKeys.erase(key);
    if (const auto waiting = pendingByKey.find(key); waiting != pendingByKey.end()) {
      const std::uint64_t number = waiting->second.front();
      ready.emplace(number, &pending.at(number));
    }
  }

  std::vector<Job> takeAllPending() {
    std::vector<Job> jobs;
    jobs.reserve(pending.size());
    for (auto& [number, job] : pending) jobs.push_back(std::move(job));
    pending.clear();
    ready.clear();
    pendingByKey.clear();
    return jobs;
  }

  /// Gives an error when a worker is needed, cannot be made and there is no other one to take its place.
  std::exception_ptr addWorkerIfNeeded() {
    if (workers.size() == static_cast<std::size_t>(limit) || ready.size() <= idleWorkers) return nullptr;
    try {
      workers.emplace_back([this] { work(); });
    } catch (...) {
      if (workers.empty()) return std::current_exception();
    }
    return nullptr;
  }

  // Below without the mutex.

  static void refuse(std::vector<Job>& jobs, const std::exception_ptr& reason) {
    for (auto& job : jobs) {
      job.onStart = nullptr;
      job.task->fail(reason);
      job.task->resume();
    }
  }

  void work() {
    pthread_setname_np(pthread_self(), "compression");
    std::unique_lock lock(mutex);
    std::optional<Job> job;
    for (;;) {
      while (!job) {
        if (stopped) return;
        job = startNextReadyJob();
        if (job) break;
        ++idleWorkers;
        wake.wait(lock);
        --idleWorkers;
      }
      lock.unlock();
      job->perform(coordinationDirectory, limit, stopSource.token());
      lock.lock();
      // The key is free, and the next job started, before the caller goes on: whoever queues the same file
      // again at once finds it free.
      free(job->key);
      std::optional<Job> next = startNextReadyJob();
      lock.unlock();
      job->task->resume();
      job = std::move(next);
      lock.lock();
    }
  }
};

int CompressionQueue::recommendedConcurrentTasks(unsigned cores, std::uint64_t memoryBytes) {
  constexpr std::uint64_t memoryPerTask = 4ULL << 30;
  const std::uint64_t tasks = std::min<std::uint64_t>({cores / 2, memoryBytes / memoryPerTask, 4});
  return static_cast<int>(std::max<std::uint64_t>(tasks, 1));
}

int CompressionQueue::recommendedConcurrentTasks() {
  static const int tasks = recommendedConcurrentTasks(activeProcessorCount(), installedMemory());
  return tasks;
}

CompressionQueue& CompressionQueue::shared() {
  static CompressionQueue queue(recommendedConcurrentTasks());
  return queue;
}

CompressionQueue::CompressionQueue(int maxConcurrentTasks, std::optional<URL> coordinationDirectory)
    : impl_(std::make_unique<Impl>(maxConcurrentTasks, coordinationDirectory
                                                           ? std::move(*coordinationDirectory)
                                                           : locations::compressionLocks())) {}

CompressionQueue::~CompressionQueue() {
  stop();
  for (auto& worker : impl_->workers) worker.join();
}

int CompressionQueue::limit() const {
  return impl_->limit;
}

const URL& CompressionQueue::coordinationDirectory() const {
  return impl_->coordinationDirectory;
}

std::string CompressionQueue::fileIdentity(const URL& url) {
  return url.resolvingSymlinks().path();
}

void CompressionQueue::enqueue(const URL& url, std::function<void()> onStart, std::unique_ptr<AnyTask> task,
                               const StopToken& stop) {
  Job job{.key = fileIdentity(url), .onStart = std::move(onStart), .task = std::move(task), .stop = stop};
  std::vector<Job> refused;
  std::exception_ptr reason;
  {
    const std::lock_guard lock(impl_->mutex);
    impl_->append(std::move(job));
    reason = impl_->stopped ? std::make_exception_ptr(Interrupted()) : impl_->addWorkerIfNeeded();
    if (reason) refused = impl_->takeAllPending();  // nobody is there to run it
    impl_->wake.notify_one();
  }
  Impl::refuse(refused, reason);
}

void CompressionQueue::stop() {
  std::vector<Job> refused;
  {
    const std::lock_guard lock(impl_->mutex);
    impl_->stopped = true;
    refused = impl_->takeAllPending();
    impl_->wake.notify_all();
  }
  impl_->stopSource.requestStop();
  Impl::refuse(refused, std::make_exception_ptr(Interrupted()));
}

}  // namespace tidewell
