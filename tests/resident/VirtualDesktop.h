// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "TidewellBackground/resident/Desktop.h"

namespace tidewell::test {

/// A desktop without one: time moves when told to, worker threads are a list of work that waits, and what is
/// shown, posted and asked for is kept.
class VirtualDesktop final : public MainQueue,
                             public WorkerThreads,
                             public StatusBar,
                             public Notifications,
                             public TokenSource {
 public:
  Desktop interfaces() {
    return {
        .mainQueue = *this, .workers = *this, .statusBar = *this, .notifications = *this, .tokens = *this};
  }

  void post(std::function<void()> action) override { posted_.push_back(std::move(action)); }
  Date now() const override { return now_; }
  void after(double seconds, std::function<void()> action) override {
    timers_.emplace(now_.adding(seconds).sinceReferenceDate, std::move(action));
  }
  void terminate() override { terminated = true; }
  void run(std::function<void()> work) override { work_.push_back(std::move(work)); }
  std::unique_ptr<StatusItem> makeStatusItem() override { return std::make_unique<Item>(*this); }
  void postHistoryDidChange() override {
    ++historyChanges;
    if (onHistoryChange) onHistoryChange();
  }
  std::string commandToken() override { return token; }

  /// Does the oldest piece of work and what it posts. False when there is none.
  bool work() {
    if (work_.empty()) return false;
    auto next = std::move(work_.front());
    work_.pop_front();
    next();
    while (!posted_.empty()) {
      auto action = std::move(posted_.front());
      posted_.pop_front();
      action();
    }
    return true;
  }
  std::size_t waitingWork() const { return work_.size(); }

  /// Lets time pass, timers elapse and work be done at once, until the end of the loop.
  void pass(double seconds) {
    const double end = now_.sinceReferenceDate + seconds;
    while (!terminated) {
      if (work()) continue;
      const auto next = timers_.begin();
      if (next == timers_.end() || next->first > end) break;
      now_.sinceReferenceDate = next->first;
      auto action = std::move(next->second);
      timers_.erase(next);
      action();
    }
    if (!terminated) now_.sinceReferenceDate = end;
  }

  void setClock(Date now) { now_ = now; }

  std::string token = "secret+token/=";
  bool terminated = false;
  int historyChanges = 0;
  std::function<void()> onHistoryChange;  ///< what whoever is notified does
  int items = 0;                          ///< in the status area now
  std::string title;
  std::string toolTip;

 private:
  struct Item final : StatusItem {
    explicit Item(VirtualDesktop& owner) : owner_(owner) { ++owner_.items; }
    ~Item() override { --owner_.items; }
    void setTitle(const std::string& text) override { owner_.title = text; }
    void setToolTip(const std::string& text) override { owner_.toolTip = text; }
    VirtualDesktop& owner_;
  };

  Date now_{1000};
  std::multimap<double, std::function<void()>> timers_;
  std::deque<std::function<void()>> posted_;
  std::deque<std::function<void()>> work_;
};

}  // namespace tidewell::test
