// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <list>
#include <system_error>
#include <thread>
#include <utility>

#include "TidewellBackground/resident/Desktop.h"

namespace tidewell {

/// One plain thread for each piece of work, begun later while the system gives no thread. The destructor
/// waits for those that have begun.
class BackgroundThreads final : public WorkerThreads {
 public:
  explicit BackgroundThreads(MainQueue& mainQueue) : mainQueue_(mainQueue) {}
  BackgroundThreads(const BackgroundThreads&) = delete;
  BackgroundThreads& operator=(const BackgroundThreads&) = delete;

  void run(std::function<void()> work) override {
    const auto thread = threads_.emplace(threads_.end());
    try {
      *thread = std::jthread([this, thread, work] {
        work();
        mainQueue_.post([this, thread] { threads_.erase(thread); });
      });
    } catch (const std::system_error&) {
      threads_.erase(thread);
      mainQueue_.after(1, [this, work = std::move(work)] { run(work); });
    }
  }

 private:
  MainQueue& mainQueue_;
  std::list<std::jthread> threads_;  ///< touched by the main thread alone
};

}  // namespace tidewell
