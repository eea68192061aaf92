// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewell {

/// A universally unique identifier (RFC 9562). `UUID::random()` makes version 4 from the kernel's generator.
class UUID {
 public:
  static UUID random();
  /// Accepts the 36-character form in either letter case.
  static std::optional<UUID> parse(std::string_view text);

  /// Whether a text is such a form, to the letter, as `string()` gives it.
  static bool isCanonical(std::string_view text);

  /// Canonical upper-case form, 8-4-4-4-12 hexadecimal digits.
  std::string string() const;

  auto operator<=>(const UUID&) const = default;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace tidewell
