// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/Interface.h"

#include <algorithm>
#include <limits>

#include "CompressionKit/wording/Texts.h"

namespace tidewell {
namespace {

constexpr std::size_t any = std::numeric_limits<std::size_t>::max();
constexpr OptionSpec json{"--json", nullptr, N_("print lines of JSON for scripts")};
constexpr OptionSpec color{"--color", "auto|never|always", N_("when to use colours")};
constexpr OptionSpec help{"-h,--help", nullptr, N_("tell what the command does, and its options")};

std::vector<OptionSpec> compressOptions() {
  return {
      {"-n,--dry-run", nullptr, N_("do all the work on a copy and throw it away: the numbers are true")},
      {"--exclude", "GLOB", N_("leave out what matches, by name or by path; may be repeated")},
      {"--hidden", nullptr, N_("look at hidden files and folders, too")},
      {"--files0-from", "FILE",
       N_("take the names from a file in which each ends in NUL; “-” is standard input")},
      {"--output", "DIR", N_("write compressed copies there and leave the originals alone")},
      {"--min-saving", "SIZE", N_("count a smaller gain as none: “5%” or “10K”")},
      {"--min-score", "N",
       N_("ask for a higher score than the built-in floors (60 to 86 for JPEG, 70 for PNG and GIF)")},
      {"--strip", nullptr, N_("remove date, place, camera and comments; the orientation stays")},
      {"--new-times", nullptr, N_("let the files have new times")},
      {"--again", nullptr, N_("compress also what was compressed before")},
      {"-j,--jobs", "N", N_("work on at most N files at once, if that is fewer than recommended")},
      {"-v,--verbose", nullptr, N_("print one line for each file")},
      {"-q,--quiet", nullptr, N_("print errors only")},
      json,
      color,
      help,
  };
}

std::vector<CommandSpec> makeSpecs() {
  return {
      {"compress", "[OPTIONS] PATH...", N_("make pictures smaller, in place and with a backup"), 0, any,
       compressOptions()},
      {"history",
       "[--json] [--since WHEN] [PATH...]",
       N_("list what was compressed, newest first"),
       0,
       any,
       {json,
        {"--since", "WHEN", N_("leave out what is older: “2h”, “today”, “2026-11-24 18:40”")},
        color,
        help}},
      {"restore",
       "[-n] [--to DIR] ID|latest|PATH...",
       N_("bring originals back"),
       1,
       any,
       {{"-n,--dry-run", nullptr, N_("tell what would come back and change nothing")},
        {"--to", "DIR", N_("copy the backups there and touch nothing else")},
        color,
        help}},
      {"compare",
       "[--output FILE.png] ID|PATH | A B",
       N_("compare original and result, or two pictures"),
       1,
       2,
       {{"--output", "FILE.png", N_("write both and their difference, side by side")}, color, help}},
      {"explain",
       "[--json] ID|PATH",
       N_("tell every attempt at a file and why it was taken or not"),
       1,
       1,
       {json, color, help}},
      {"forget",
       "[--older-than AGE] ID|all",
       N_("remove backups and their records"),
       1,
       1,
       {{"--older-than", "AGE", N_("leave out what is younger: “90m”, “4h”, “2d”")}, color, help}},
      {"status",
       "[--json]",
       N_("tell about store, limits, tools and what was saved"),
       0,
       0,
       {json, color, help}},
      {"completion", "bash|zsh|fish", N_("print the completions for a shell"), 1, 1, {help}},
      {"help", "[COMMAND]", N_("tell what the program or a command does"), 0, 1, {help}},
  };
}

}  // namespace

std::string_view OptionSpec::longName() const {
  const std::string_view all = names;
  return all.substr(all.rfind("--") + 2);
}

std::span<const CommandSpec> commandSpecs() {
  static const std::vector<CommandSpec> specs = makeSpecs();
  return specs;
}

const CommandSpec* commandSpec(std::string_view name) {
  const auto specs = commandSpecs();
  const auto found = std::ranges::find(specs, name, &CommandSpec::name);
  return found == specs.end() ? nullptr : &*found;
}

}  // namespace tidewell
