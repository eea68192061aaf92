// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/WakeObserver.h"

#include <utility>

#include "TidewellBackground/resident/EventLoop.h"

namespace tidewell {

WakeObserver::WakeObserver(EventLoop& loop, std::function<void()> didWake) {
  try {
    bus_ = openSystemBus(loop);
    prepareForSleep_.emplace(
        bus_.get(),
        "type='signal',sender='org.freedesktop.login1',path='/org/freedesktop/login1',"
        "interface='org.freedesktop.login1.Manager',member='PrepareForSleep'",
        [didWake = std::move(didWake)](sd_bus_message* message) {
          int sleeps = true;
          if (sd_bus_message_read_basic(message, SD_BUS_TYPE_BOOLEAN, &sleeps) > 0 && !sleeps) {
            didWake();
          }
        });
  } catch (const std::system_error&) {
    // A wake then goes unnoticed; the timers count suspended time, so that maintenance is not late.
  }
}

}  // namespace tidewell
