// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/Quantities.h"

#include <charconv>
#include <cmath>
#include <ctime>
#include <string>
#include <system_error>
#include <utility>

#include "CompressionKit/platform/URL.h"

namespace tidewell {
namespace {

constexpr std::pair<const char*, double> ageUnits[] = {
    {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}};
constexpr const char* momentFormats[] = {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M",
                                         "%Y-%m-%dT%H:%M:%S"};

/// The number at the start, not negative, and what follows it.
std::optional<std::pair<double, std::string_view>> numberAndRest(std::string_view text) {
  double number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (error != std::errc() || !std::isfinite(number) || std::signbit(number)) return std::nullopt;
  return std::pair{number, std::string_view(rest, static_cast<std::size_t>(end - rest))};
}

Date startOfDay(Date now, int daysBefore) {
  const auto seconds = static_cast<std::time_t>(now.since1970());
  std::tm time{};
  localtime_r(&seconds, &time);
  time.tm_mday -= daysBefore;
  time.tm_hour = time.tm_min = time.tm_sec = 0;
  time.tm_isdst = -1;
  return Date::since1970(static_cast<double>(std::mktime(&time)));
}

std::optional<Date> parsedCalendarMoment(std::string text) {
  const bool isUTC = text.ends_with('Z');
  if (isUTC) text.pop_back();
  for (const char* format : momentFormats) {
    std::tm time{};
    const char* end = strptime(text.c_str(), format, &time);
    if (end == nullptr || *end != '\0') continue;
    const int day = time.tm_mday;
    time.tm_isdst = -1;
    const std::time_t seconds = isUTC ? timegm(&time) : std::mktime(&time);
    if (time.tm_mday != day) return std::nullopt;  // the 31st of a month that has 30 days
    return Date::since1970(static_cast<double>(seconds));
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::int64_t> parsedSize(std::string_view text) {
  const auto parts = numberAndRest(text);
  if (!parts) return std::nullopt;
  std::string unit = asciiLowercased(parts->second);
  if (unit.ends_with('b')) unit.pop_back();
  constexpr std::string_view units = "kmgt";
  const auto index = unit.empty() ? 0 : units.find(unit) + 1;
  if (unit.size() > 1 || index > units.size() || (!unit.empty() && index == 0)) return std::nullopt;
  const double bytes = std::round(parts->first * std::pow(1000.0, static_cast<double>(index)));
  if (bytes > 9e18) return std::nullopt;
  return static_cast<std::int64_t>(bytes);
}

std::optional<double> parsedPercentage(std::string_view text) {
  const auto parts = numberAndRest(text);
  if (!parts || parts->second != "%" || parts->first > 100) return std::nullopt;
  return parts->first;
}

std::optional<double> parsedAge(std::string_view text) {
  const auto parts = numberAndRest(text);
  if (!parts) return std::nullopt;
  for (const auto& [unit, seconds] : ageUnits) {
    if (parts->second == unit) return parts->first * seconds;
  }
  return std::nullopt;
}

std::optional<Date> parsedMoment(std::string_view text, Date now) {
  if (text == "today") return startOfDay(now, 0);
  if (text == "yesterday") return startOfDay(now, 1);
  if (const auto age = parsedAge(text)) return now.adding(-*age);
  return parsedCalendarMoment(std::string(text));
}

std::optional<double> parsedNumber(std::string_view text) {
  const auto parts = numberAndRest(text);
  return parts && parts->second.empty() ? std::optional(parts->first) : std::nullopt;
}

}  // namespace tidewell
