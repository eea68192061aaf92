// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <optional>

#include "TidewellBackground/resident/Bus.h"

namespace tidewell {

/// Tells when the machine has woken from sleep, by the login manager's signal on the system bus. Without a
/// system bus it stays silent.
class WakeObserver {
 public:
  WakeObserver(EventLoop& loop, std::function<void()> didWake);

 private:
  BusConnection bus_;
  std::optional<BusMatch> prepareForSleep_;
};

}  // namespace tidewell
