// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/EventLoop.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <utility>

#include "TidewellBackground/resident/Bus.h"

namespace tidewell {

struct EventLoop::Timer {
  EventLoop& loop;
  std::function<void()> action;
  Source source;
};

EventLoop::EventLoop() {
  sd_event* event = nullptr;
  check(sd_event_new(&event), "sd_event_new");
  event_.reset(event);

  wakeUp_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  check(wakeUp_ ? 0 : -errno, "eventfd");
  sd_event_source* source = nullptr;
  check(sd_event_add_io(event, &source, wakeUp_.get(), EPOLLIN, postArrived, this), "sd_event_add_io");
  postSource_.reset(source);
}

EventLoop::~EventLoop() = default;

void EventLoop::post(std::function<void()> action) {
  const std::lock_guard lock(mutex_);
  posted_.push_back(std::move(action));
  // Cannot fail: only a counter near 2^64 would make it block.
  eventfd_write(wakeUp_.get(), 1);
}

int EventLoop::postArrived(sd_event_source*, int descriptor, std::uint32_t, void* self) noexcept {
  auto& loop = *static_cast<EventLoop*>(self);
  eventfd_t count = 0;
  eventfd_read(descriptor, &count);
  std::deque<std::function<void()>> actions;
  {
    const std::lock_guard lock(loop.mutex_);
    actions.swap(loop.posted_);
  }
  for (const auto& action : actions) action();
  return 0;
}

void EventLoop::after(double seconds, std::function<void()> action) {
  const auto delay = static_cast<std::uint64_t>(std::clamp(seconds, 0.0, 1e9) * 1e6);
  auto timer = std::make_unique<Timer>(Timer{*this, std::move(action), nullptr});
  sd_event_source* source = nullptr;
  // 0: the default accuracy of a quarter second, with which the kernel may join wake-ups.
  check(sd_event_add_time_relative(handle(), &source, CLOCK_BOOTTIME, delay, 0, timerElapsed, timer.get()),
        "sd_event_add_time_relative");
  timer->source.reset(source);
  timers_.emplace(timer.get(), std::move(timer));
}

int EventLoop::timerElapsed(sd_event_source*, std::uint64_t, void* timer) noexcept {
  auto& loop = static_cast<Timer*>(timer)->loop;
  const auto node = loop.timers_.extract(static_cast<const Timer*>(timer));
  node.mapped()->action();
  return 0;
}

void EventLoop::onSignals(const std::vector<int>& signals, std::function<void()> action) {
  signalAction_ = std::move(action);
  for (const int signal : signals) {
    struct sigaction current {};
    sigaction(signal, nullptr, &current);
    if (current.sa_handler == SIG_IGN) continue;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    check(-pthread_sigmask(SIG_BLOCK, &set, nullptr), "pthread_sigmask");
    sd_event_source* source = nullptr;
    check(sd_event_add_signal(handle(), &source, signal, signalArrived, this), "sd_event_add_signal");
    signalSources_.emplace_back(source);
  }
}

int EventLoop::signalArrived(sd_event_source*, const signalfd_siginfo*, void* self) noexcept {
  static_cast<EventLoop*>(self)->signalAction_();
  return 0;
}

void EventLoop::run() {
  running_ = true;
  while (running_) check(sd_event_run(handle(), UINT64_MAX), "sd_event_run");
}

}  // namespace tidewell
