// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace tidewell {

/// One of a closed list of texts. Made of a literal, which the compiler looks up, so a text that is not in
/// the list does not compile, and whoever has words of his own for each of them can prove that he knows all.
template <const auto& texts>
class FixedText {
 public:
  consteval FixedText(const char* text)  // NOLINT(google-explicit-constructor)
      : text_(*std::find(texts.begin(), texts.end(), std::string_view(text))) {}

  constexpr std::string_view text() const { return text_; }
  bool operator==(const FixedText&) const = default;

 private:
  std::string_view text_;
};

}  // namespace tidewell
