// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Errors.h"
#include "Tidewell/Output.h"
#include "Tidewell/Quantities.h"

namespace tidewell {
namespace {

ParsedCommand parsed(const std::vector<const char*>& arguments) {
  return parseCommandLine(arguments);
}

TEST(CommandLine, TakesNamesAsTheyAre) {
  const auto options =
      std::get<CompressCommandOptions>(parsed({"compress", "[a,b]", "history", "++", "-", "--exclude", "[xy]",
                                               "-j2", "--exclude=*.gif", "--", "-n", "--", "++"})
                                           .options);
  EXPECT_EQ(options.paths, (std::vector<std::string>{"[a,b]", "history", "./++", "-", "-n", "--", "++"}));
  EXPECT_EQ(options.excludes, (std::vector<std::string>{"[xy]", "*.gif"}));
  EXPECT_EQ(options.jobs, 2);
  EXPECT_FALSE(options.dryRun);
}

TEST(CommandLine, TakesEveryOption) {
  const auto all = std::get<CompressCommandOptions>(
      parsed({"compress", "-nv", "--hidden", "--files0-from", "-", "--output", "out", "--min-saving", "5%",
              "--min-score", "72.5", "--strip", "--new-times", "--again", "--json"})
          .options);
  EXPECT_TRUE(all.dryRun && all.verbose && all.hidden && all.strip && all.newTimes && all.again && all.json);
  EXPECT_EQ(all.files0From, "-");
  EXPECT_EQ(all.output, "out");
  EXPECT_EQ(all.minimumPercent, 5);
  EXPECT_EQ(all.minimumScore, 72.5);
  const auto restore =
      std::get<RestoreOptions>(parsed({"restore", "-n", "latest", "--to", "a", "--to", "b"}).options);
  EXPECT_TRUE(restore.dryRun);
  EXPECT_EQ(restore.to, "b");
  EXPECT_EQ(std::get<ForgetOptions>(parsed({"forget", "--older-than", "2d", "all"}).options).olderThan,
            172800);
  EXPECT_EQ(std::get<HelpOptions>(parsed({"explain", "--help"}).options).command, "explain");
  EXPECT_EQ(parsed({"status", "--color=never"}).color, Terminal::Color::never);
}

TEST(CommandLine, RefusesWhatItCannotUnderstand) {
  const std::vector<std::vector<const char*>> lines = {
      {},
      {"shrink"},
      {"--json"},
      {"compress"},
      {"compress", ""},
      {"compress", "-x", "a"},
      {"compress", "a", "--json=maybe"},
      {"compress", "a", "--output"},
      {"compress", "a", "--jobs", "0"},
      {"compress", "a", "--jobs", "1.5"},
      {"compress", "a", "--min-saving",
       "5"
       "%%"},
      {"compress", "a", "--min-score", "101"},
      {"compress", "-qv", "a"},
      {"compress", "a", "--color", "red"},
      {"history", "--since", "soon"},
      {"restore"},
      {"compare", "a", "b", "c"},
      {"explain"},
      {"forget", "--older-than", "4", "all"},
      {"status", "now"},
      {"completion", "tcsh"},
      {"help", "shrink"},
  };
  for (const auto& line : lines) {
    EXPECT_THROW(parsed(line), UsageError) << (line.empty() ? "" : line.back());
  }
}

TEST(Quantities, AreReadAsPeopleTypeThem) {
  const std::pair<const char*, std::optional<std::int64_t>> sizes[] = {{"0", 0},
                                                                       {"512b", 512},
                                                                       {"10K", 10'000},
                                                                       {"2.5MB", 2'500'000},
                                                                       {"1g", 1'000'000'000},
                                                                       {"10KK", {}},
                                                                       {"-1", {}},
                                                                       {"K", {}},
                                                                       {"", {}},
                                                                       {"1e3", {}},
                                                                       {"nan", {}},
                                                                       {"0x10", {}},
                                                                       {"1 K", {}},
                                                                       {"99999999T", {}},
                                                                       {"inf", {}}};
  for (const auto& [text, bytes] : sizes) EXPECT_EQ(parsedSize(text), bytes) << text;
  const std::pair<const char*, std::optional<double>> ages[] = {
      {"90s", 90}, {"1.5h", 5400}, {"2w", 1209600}, {"4", {}}, {"h", {}}};
  for (const auto& [text, seconds] : ages) EXPECT_EQ(parsedAge(text), seconds) << text;
  EXPECT_EQ(parsedPercentage("7.5%"), 7.5);
  for (const char* text : {"101%", "-1%", "5", "%"}) EXPECT_FALSE(parsedPercentage(text)) << text;

  const Date now = Date::since1970(1'800'000'000);
  EXPECT_EQ(parsedMoment("2h", now), now.adding(-7200));
  EXPECT_EQ(parsedMoment("2027-01-15T08:00:00Z", now), now);
  EXPECT_LE(*parsedMoment("today", now), now);
  EXPECT_LT(*parsedMoment("yesterday", now), *parsedMoment("today", now));
  for (const char* text : {"2026-02-30", "2026-13-01", "2026-01-01 25:00", "then", ""}) {
    EXPECT_FALSE(parsedMoment(text, now)) << text;
  }
}

TEST(Output, CountsColumnsAndUnits) {
  EXPECT_EQ(displayWidth("a照片é"), 6U);
  EXPECT_EQ(prefixOfWidth("照片与图片.jpg", 7), "照片与…");
  EXPECT_EQ(wrapped("one two-three 四五六。七", 7),
            (std::vector<std::string>{"one", "two-three", "四五", "六。七"}));
  EXPECT_EQ(printable("a\n\x1b[31m\xff"
                      "照"),
            "a??[31m\xef\xbf\xbd"
            "照");
  const std::pair<std::int64_t, const char*> sizes[] = {{0, "0 B"},          {999, "999 B"},
                                                        {1000, "1.0 kB"},    {999'949, "999.9 kB"},
                                                        {999'950, "1.0 MB"}, {-41'200'000, "-41.2 MB"}};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(sizeText(bytes), text);
  EXPECT_EQ(savedText(10'000, 4'300), "5.7 kB (57%)");
  EXPECT_EQ(savedText(10'000, 12'000), "2.0 kB more (20%)");
}

}  // namespace
}  // namespace tidewell
