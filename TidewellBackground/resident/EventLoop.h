// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "TidewellBackground/resident/Desktop.h"

namespace tidewell {

/// The main thread's event loop: posts from other threads, timers, signals, and the buses attached to it.
/// Sleeps in the kernel while nothing happens. Operations throw `std::system_error` when the kernel refuses.
class EventLoop final : public MainQueue {
 public:
  EventLoop();
  ~EventLoop() override;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  void post(std::function<void()> action) override;
  Date now() const override { return Date::now(); }
  void after(double seconds, std::function<void()> action) override;
  void terminate() override { running_ = false; }

  /// Runs `action` on the loop for each of these signals. They are blocked in this thread and in those that
  /// it starts from now on, so call it before any thread exists. One that is ignored (nohup) stays ignored.
  void onSignals(const std::vector<int>& signals, std::function<void()> action);

  /// Returns after `terminate()`. May be called again.
  void run();

  sd_event* handle() const { return event_.get(); }

 private:
  struct Release {
    void operator()(sd_event* event) const { sd_event_unref(event); }
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
  };
  using Source = std::unique_ptr<sd_event_source, Release>;
  struct Timer;

  // Called by C code, which no exception may cross: an action that throws ends the process.
  static int postArrived(sd_event_source*, int descriptor, std::uint32_t events, void* self) noexcept;
  static int timerElapsed(sd_event_source*, std::uint64_t time, void* timer) noexcept;
  static int signalArrived(sd_event_source*, const signalfd_siginfo*, void* self) noexcept;

  std::unique_ptr<sd_event, Release> event_;
  bool running_ = false;

  Descriptor wakeUp_;  ///< an eventfd, written by `post`
  Source postSource_;
  std::mutex mutex_;
  std::deque<std::function<void()>> posted_;  ///< guarded by `mutex_`

  std::map<const Timer*, std::unique_ptr<Timer>> timers_;
  std::vector<Source> signalSources_;
  std::function<void()> signalAction_;
};

}  // namespace tidewell
