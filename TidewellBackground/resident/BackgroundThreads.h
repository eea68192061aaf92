#pragma once

#include <functional>
#include <list>
#include <thread>

#include "TidewellBackground/resident/Platform.h"

namespace tidewell {

/// One plain thread for each piece of work. The destructor waits for all of them.
class BackgroundThreads final : public WorkerThreads {
 public:
  explicit BackgroundThreads(MainQueue& mainQueue) : mainQueue_(mainQueue) {}
  BackgroundThreads(const BackgroundThreads&) = delete;
  BackgroundThreads& operator=(const BackgroundThreads&) = delete;

  void run(std::function<void()> work) override {
    const auto thread = threads_.emplace(threads_.end());
    *thread = std::jthread([this, thread, work = std::move(work)] {
      work();
      mainQueue_.post([this, thread] { threads_.erase(thread); });
    });
  }

 private:
  MainQueue& mainQueue_;
  std::list<std::jthread> threads_;  ///< touched by the main thread alone
};

}  // namespace tidewell
