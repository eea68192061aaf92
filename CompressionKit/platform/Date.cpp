// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Date.h"

#include <chrono>
#include <cmath>
#include <ctime>

namespace tidewell {

Date Date::now() {
  const std::chrono::duration<double> seconds = std::chrono::system_clock::now().time_since_epoch();
  return since1970(seconds.count());
}

std::string Date::iso8601() const {
  const auto seconds = static_cast<std::time_t>(std::floor(since1970()));
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32];
  const auto length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {text, length};
}

}  // namespace tidewell
