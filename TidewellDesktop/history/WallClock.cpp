// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/history/WallClock.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace tidewell::desktop {

WallClock::WallClock(QObject* parent)
    : QObject(parent), timer_(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK)) {
  fallback_.setSingleShot(true);
  connect(&fallback_, &QTimer::timeout, this, &WallClock::woke);
  if (!timer_) return;
  notifier_ = std::make_unique<QSocketNotifier>(timer_.get(), QSocketNotifier::Read);
  connect(notifier_.get(), &QSocketNotifier::activated, this, &WallClock::read);
}

void WallClock::wakeAt(Date moment) {
  // A moment of zero would stop the timer; one beyond any calendar is never.
  const double seconds = std::clamp(moment.since1970(), 1.0, 1e11);
  itimerspec when{};
  when.it_value.tv_sec = static_cast<time_t>(seconds);
  when.it_value.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
  if (timer_ &&
      timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &when, nullptr) == 0)
    return;
  constexpr double longest = 60;
  const double left = std::clamp(moment.since(Date::now()), 0.0, longest);
  fallback_.start(std::chrono::milliseconds(static_cast<int>(left * 1000) + 1));
}

void WallClock::stop() {
  fallback_.stop();
  const itimerspec never{};
  if (timer_) timerfd_settime(timer_.get(), 0, &never, nullptr);
}

void WallClock::read() {
  std::uint64_t times = 0;
  const bool isDue = ::read(timer_.get(), &times, sizeof times) > 0;
  if (!isDue && errno != ECANCELED) return;
  stop();
  Q_EMIT woke();
}

}  // namespace tidewell::desktop
