// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace tidewell {
namespace {

using namespace std::string_literals;

#define REPLACEMENT "\xEF\xBF\xBD"

TEST(Text, RepairsByMaximalSubparts) {
  const struct {
    std::string bytes;
    std::string repaired;
  } cases[] = {
      {"", ""},
      {"plain\0text"s, "plain\0text"s},
      {"潮汐井 \U0001F30A \u00E9", "潮汐井 \U0001F30A \u00E9"},
      {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},                               // U+10FFFF, the last
      {"\xF4\x90\x80\x80", REPLACEMENT REPLACEMENT REPLACEMENT REPLACEMENT},  // beyond it
      {"\xED\x9F\xBF\xEE\x80\x80", "\xED\x9F\xBF\xEE\x80\x80"},               // around surrogates
      {"\xED\xA0\x80", REPLACEMENT REPLACEMENT REPLACEMENT},                  // a surrogate
      {"\xC0\xAF", REPLACEMENT REPLACEMENT},                                  // overlong
      {"\xE0\x9F\xBF", REPLACEMENT REPLACEMENT REPLACEMENT},                  // overlong
      {"\xF0\x8F\xBF\xBF", REPLACEMENT REPLACEMENT REPLACEMENT REPLACEMENT},  // overlong
      {"\xE6\xBD", REPLACEMENT},                                              // cut at the end
      {"a\xF0\x9F\x8C", "a" REPLACEMENT},                                     // cut at the end
      {"\xF0\x9F\x8C潮", REPLACEMENT "潮"},                                   // cut before a lead
      {"\x80\xBF\xFF", REPLACEMENT REPLACEMENT REPLACEMENT},
      // The example of the Unicode Standard, table 3-8.
      {"a\xF1\x80\x80\xE1\x80\xC2"s + "b\x80"s + "c\x80\xBF"s + "d",
       "a" REPLACEMENT REPLACEMENT REPLACEMENT "b" REPLACEMENT "c" REPLACEMENT REPLACEMENT "d"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(repairedUTF8(c.bytes), c.repaired) << testing::PrintToString(c.bytes);
    EXPECT_EQ(isValidUTF8(c.bytes), c.bytes == c.repaired) << testing::PrintToString(c.bytes);
  }
}

TEST(Text, CountsWhatAUserSeesAsOneCharacter) {
  const struct {
    std::string text;
    std::size_t count;
    std::string prefix;
  } cases[] = {
      {"abc", 0, ""},
      {"abc", 2, "ab"},
      {"abc", 3, "abc"},
      {"abc", 9, "abc"},
      {"", 3, ""},
      {"潮汐井", 2, "潮汐"},
      {"e\u0301e\u0301x", 2, "e\u0301e\u0301"},  // combining marks
      {"a\r\nb", 2, "a\r\n"},
      {"\U0001F1E8\U0001F1F3\U0001F1EB\U0001F1F7!", 1, "\U0001F1E8\U0001F1F3"},  // flags
      {"\U0001F469\u200D\U0001F469\u200D\U0001F467!", 1, "\U0001F469\u200D\U0001F469\u200D\U0001F467"},
      {"\U0001F44D\U0001F3FDx", 1, "\U0001F44D\U0001F3FD"},  // skin tone
      {"\u1112\u1161\u11ABx", 1, "\u1112\u1161\u11AB"},      // Hangul jamo
  };
  for (const auto& c : cases) EXPECT_EQ(characterPrefix(c.text, c.count), c.prefix) << c.text;
}

TEST(Text, MakesNamesThatFit) {
  const auto of = [](std::size_t count, const std::string& text) {
    std::string result;
    while (count-- > 0) result += text;
    return result;
  };
  EXPECT_EQ(fittingName("photo", "-2.jpg"), "photo-2.jpg");
  EXPECT_EQ(fittingName(of(251, "a"), ".jpg"), of(251, "a") + ".jpg");
  EXPECT_EQ(fittingName(of(251, "a"), "-2.jpg"), of(249, "a") + "-2.jpg");
  EXPECT_EQ(fittingName(of(84, "井"), "-23.jpg"), of(82, "井") + "-23.jpg") << "not within a character";
  EXPECT_EQ(fittingName(of(255, "\xBF"), "-2"), of(250, "\xBF") + "-2") << "no text at all";
}

TEST(Text, TrimsEveryKindOfSpace) {
  EXPECT_EQ(trimmed(" \t\r\n\v\f12.5\n"), "12.5");
  EXPECT_EQ(trimmed("\u3000\u00A0 a \u2028b\u2029\u0085\u2003"), "a \u2028b");
  EXPECT_EQ(trimmed(" \n"), "");
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed("\0 x \0"s), "\0 x \0"s);
  EXPECT_EQ(trimmed(" \xFF "), "\xFF");
}

}  // namespace
}  // namespace tidewell
