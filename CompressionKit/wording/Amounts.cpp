// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Amounts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "CompressionKit/wording/Texts.h"

namespace tidewell {
namespace {

std::string formattedTime(const char* format, const std::tm& time) {
  char buffer[64] = {};
  std::strftime(buffer, sizeof buffer, format, &time);
  return buffer;
}

std::tm localTime(Date moment) {
  // What is beyond the calendar of a time_t is a broken record, told as the end of it.
  const auto seconds = static_cast<std::time_t>(std::clamp(moment.since1970(), -6e10, 2e11));
  std::tm time{};
  localtime_r(&seconds, &time);
  return time;
}

}  // namespace

std::string sizeText(std::int64_t bytes) {
  static constexpr std::array units{"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  auto size = static_cast<double>(bytes);
  std::size_t unit = 0;
  // As soon as it would be shown as 1000.
  while (unit + 1 < units.size() && std::abs(size) >= (unit == 0 ? 1000 : 999.95)) {
    size /= 1000;
    ++unit;
  }
  char buffer[32] = {};
  std::snprintf(buffer, sizeof buffer, unit == 0 ? "%.0f" : "%.1f", size);
  return std::string(buffer) + " " + units[unit];
}

std::string momentText(Date moment, Date now) {
  const std::tm time = localTime(moment);
  const std::tm today = localTime(now);
  const bool isToday = time.tm_year == today.tm_year && time.tm_yday == today.tm_yday;
  return formattedTime(isToday ? "%H:%M" : "%Y-%m-%d %H:%M", time);
}

std::string durationText(double seconds) {
  const auto whole = static_cast<std::int64_t>(std::clamp(std::ceil(seconds), 0.0, 1e9));
  const auto text = [](std::int64_t number) { return std::to_string(number); };
  if (whole < 60) return filled(_("{1} s"), {text(whole)});
  if (whole < 3600) return filled(_("{1} min"), {text((whole + 59) / 60)});
  return filled(_("{1} h {2} min"), {text(whole / 3600), text(whole % 3600 / 60)});
}

std::string savedText(std::int64_t before, std::int64_t after) {
  const double share =
      before > 0 ? 100.0 * static_cast<double>(before - after) / static_cast<double>(before) : 0;
  char text[32];
  std::snprintf(text, sizeof text, " (%.0f%%)", std::abs(share));
  const std::string size = sizeText(std::abs(before - after));
  return (after > before ? filled(_("{1} more"), {size}) : size) + text;
}

std::string scoreText(double score) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", score);
  return text;
}

}  // namespace tidewell
