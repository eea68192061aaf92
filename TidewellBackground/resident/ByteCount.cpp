// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/ByteCount.h"

#include <array>
#include <cstddef>

namespace tidewell {
namespace {

struct Unit {
  const char* name;
  std::int64_t size;
  std::int64_t step;  ///< the smallest difference that is shown
  int digits;         ///< of the fraction
};

constexpr std::array<Unit, 7> units{{
    {"字节", 1, 1, 0},
    {"KB", 1'000, 1'000, 0},
    {"MB", 1'000'000, 100'000, 1},
    {"GB", 1'000'000'000, 10'000'000, 2},
    {"TB", 1'000'000'000'000, 10'000'000'000, 2},
    {"PB", 1'000'000'000'000'000, 10'000'000'000'000, 2},
    {"EB", 1'000'000'000'000'000'000, 10'000'000'000'000'000, 2},
}};

std::int64_t roundedQuotient(std::int64_t value, std::int64_t step) {
  const std::int64_t quotient = value / step;
  const std::int64_t rest = value % step;
  const std::int64_t other = step - rest;
  return quotient + (rest > other || (rest == other && quotient % 2 != 0) ? 1 : 0);
}

}  // namespace

std::string byteCountText(std::int64_t bytes) {
  if (bytes == 0) return "零 KB";
  std::size_t index = 0;
  std::int64_t steps = bytes;
  const auto stepsPerUnit = [&] { return units[index].size / units[index].step; };
  while (index + 1 < units.size() && steps >= 1000 * stepsPerUnit()) {
    steps = roundedQuotient(bytes, units[++index].step);
  }
  std::string text = std::to_string(steps / stepsPerUnit());
  if (auto fraction = steps % stepsPerUnit(); fraction != 0) {
    std::string digits = std::to_string(fraction);
    digits.insert(0, static_cast<std::size_t>(units[index].digits) - digits.size(), '0');
    while (digits.back() == '0') digits.pop_back();
    text += "." + digits;
  }
  return text + " " + units[index].name;
}

}  // namespace tidewell
