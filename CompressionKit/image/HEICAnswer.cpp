// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/HEICAnswer.h"

#include <charconv>
#include <cstdint>
#include <limits>

#include "CompressionKit/platform/Text.h"

namespace tidewell {
namespace {

constexpr std::size_t maximumNameBytes = 1000;  // three times as many where they are repaired
constexpr std::int64_t maximumSide = std::numeric_limits<std::int32_t>::max();

/// Takes numbers off a text, each with the space behind it if one is there.
class Numbers {
 public:
  explicit Numbers(std::string_view text) : text_(text) {}

  /// Sets `good` to false for anything outside the range.
  std::int64_t next(std::int64_t minimum, std::int64_t maximum) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), value);
    if (error != std::errc() || value < minimum || value > maximum) good = false;
    text_.remove_prefix(static_cast<std::size_t>(end - text_.data()));
    if (!text_.starts_with(' ')) return value;
    text_.remove_prefix(1);
    ++spaces;
    return value;
  }
  std::string_view rest() const { return text_; }

  bool good = true;
  int spaces = 0;

 private:
  std::string_view text_;
};

}  // namespace

std::string HEICAnswer::text() const {
  std::string result;
  for (const std::int64_t number : {facts.frameCount, facts.width, facts.height, facts.orientation,
                                    std::int64_t{facts.hasAlpha}, std::int64_t{hasPNG}}) {
    result += (result.empty() ? "" : " ") + std::to_string(number);
  }
  if (facts.profileName) {
    const std::string_view name(facts.profileName->c_str());  // as far as its first zero
    result += " " + repairedUTF8(name.substr(0, maximumNameBytes));
  }
  return result + "\n";
}

std::optional<HEICAnswer> HEICAnswer::parse(std::string_view text) {
  text = text.substr(0, maximumBytes);
  text = text.substr(0, text.find('\0'));
  if (!text.ends_with('\n')) return std::nullopt;
  text.remove_suffix(1);

  Numbers numbers(text);
  HEICAnswer answer;
  ImageFacts& facts = answer.facts;
  facts.kind = ImageKind::heic;
  facts.frameCount = numbers.next(1, maximumSide);
  facts.width = numbers.next(1, maximumSide);
  facts.height = numbers.next(1, maximumSide);
  facts.orientation = numbers.next(1, 8);
  facts.hasAlpha = numbers.next(0, 1) != 0;
  answer.hasPNG = numbers.next(0, 1) != 0;
  const bool named = numbers.spaces == 6;
  if (!numbers.good || numbers.spaces < 5 || (!named && !numbers.rest().empty())) return std::nullopt;
  if (named) facts.profileName = repairedUTF8(numbers.rest());
  return answer;
}

}  // namespace tidewell
