// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/wording/Amounts.h"

namespace tidewell {

// Amounts as people read them, the same in every front end.

/// "41.2 MB", "812 B": decimal units, also for negative differences.
std::string sizeText(std::int64_t bytes);
/// "18:40" today, "2026-11-24 18:40" on another day; local time.
std::string momentText(Date moment, Date now = Date::now());
/// "2 h 5 min", "40 s".
std::string durationText(double seconds);

/// "1.2 MB (57%)", or "1.2 MB more (57%)" where it grew.
std::string savedText(std::int64_t before, std::int64_t after);
std::string scoreText(double score);

}  // namespace tidewell
