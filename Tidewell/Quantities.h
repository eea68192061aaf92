// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "CompressionKit/platform/Date.h"

namespace tidewell {

// What people type for amounts. Nothing for anything else.

/// "10", "10B", "10K", "2.5M", "1G": decimal units, in either letter case, with or without "B".
std::optional<std::int64_t> parsedSize(std::string_view text);

/// "5%", from 0 to 100.
std::optional<double> parsedPercentage(std::string_view text);

/// "90s", "10m" (minutes), "4h", "2d", "1w": seconds.
std::optional<double> parsedAge(std::string_view text);

/// "2026-11-24", "2026-11-24 18:40", with seconds, a "T", a "Z" for UTC, else in local time; "today",
/// "yesterday"; or an age, counted back from `now`.
std::optional<Date> parsedMoment(std::string_view text, Date now);

/// A number with nothing behind it.
std::optional<double> parsedNumber(std::string_view text);

}  // namespace tidewell
