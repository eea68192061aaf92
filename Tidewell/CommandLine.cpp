// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <utility>

#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Output.h"
#include "Tidewell/Quantities.h"

namespace tidewell {
namespace {

/// A command's words, and its options by their long names; switches have no values.
struct Line {
  std::map<std::string, std::vector<std::string>, std::less<>> options;
  std::vector<std::string> words;

  bool has(std::string_view name) const { return options.contains(name); }
  std::optional<std::string> value(std::string_view name) const {
    const auto found = options.find(name);
    return found == options.end() ? std::nullopt : std::optional(found->second.back());
  }
  std::vector<std::string> values(std::string_view name) const {
    const auto found = options.find(name);
    return found == options.end() ? std::vector<std::string>{} : found->second;
  }
};

/// What the parser says, in our words.
std::string worded(const CLI::ParseError& error, const std::vector<std::string>& arguments) {
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    return filled(_("{1} needs a value"), {printable(arguments.back())});
  }
  return _("The command line cannot be understood");
}

/// Only what follows "--" may look like an option without being one.
void takeWords(std::vector<std::string> remaining, Line& line) {
  for (auto& word : remaining) {
    if (word.size() > 1 && word.front() == '-') {
      throw UsageError(filled(_("There is no option {1} here"), {printable(word)}));
    }
    line.words.push_back(std::move(word));
  }
}

Line parseLine(const CommandSpec& spec, std::vector<std::string> arguments) {
  // The parser has a meaning of its own for "--", "++" and "[a,b]" among words, so it sees none after the
  // first.
  const auto mark = std::ranges::find(arguments, "--");
  std::vector<std::string> behind(mark == arguments.end() ? mark : mark + 1, arguments.end());
  arguments.erase(mark, arguments.end());
  std::ranges::replace(arguments, std::string("++"), std::string("./++"));

  CLI::App app;
  app.set_help_flag();
  app.allow_extras();
  Line values;
  std::vector<std::pair<CLI::Option*, std::string>> added;
  for (const auto& option : spec.options) {
    const std::string name(option.longName());
    if (option.value == nullptr) {
      added.emplace_back(app.add_flag(option.names), name);
    } else {
      auto* taken = app.add_option(option.names, values.options[name]);
      added.emplace_back(
          taken->expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll),
          name);
    }
  }
  Line line;
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    app.parse(std::move(reversed));
  } catch (const CLI::ParseError& error) {
    throw UsageError(worded(error, arguments));
  }
  for (const auto& [option, name] : added) {
    if (option->count() == 0) continue;
    line.options[name] = values.options[name];
    const bool isSwitch = line.options[name].empty();
    if (isSwitch &&
        std::ranges::any_of(option->results(), [](const auto& value) { return value != "true"; })) {
      throw UsageError(filled(_("{1} takes no value"), {"--" + name}));
    }
  }
  takeWords(app.remaining(), line);
  line.words.insert(line.words.end(), behind.begin(), behind.end());
  return line;
}

[[noreturn]] void refuse(const std::string& option, std::string_view value) {
  throw UsageError(filled(_("{1} does not take “{2}”"), {option, printable(value)}));
}

/// The option's value as `parse` understands it; nothing without the option.
template <typename Parse>
auto parsedValue(const Line& line, const std::string& name, Parse parse)
    -> decltype(parse(std::string_view())) {
  const auto text = line.value(name);
  if (!text) return std::nullopt;
  auto value = parse(std::string_view(*text));
  if (!value) refuse("--" + name, *text);
  return value;
}

std::optional<int> parsedJobs(std::string_view text) {
  const auto number = parsedNumber(text);
  const bool whole = number && *number >= 1 && *number <= 10000 && *number == std::floor(*number);
  return whole ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

CompressCommandOptions compressOptions(const Line& line) {
  CompressCommandOptions options{.paths = line.words,
                                 .files0From = line.value("files0-from"),
                                 .excludes = line.values("exclude"),
                                 .hidden = line.has("hidden"),
                                 .dryRun = line.has("dry-run"),
                                 .output = line.value("output"),
                                 .minimumScore = parsedValue(line, "min-score", parsedNumber),
                                 .strip = line.has("strip"),
                                 .newTimes = line.has("new-times"),
                                 .again = line.has("again"),
                                 .jobs = parsedValue(line, "jobs", parsedJobs),
                                 .verbose = line.has("verbose"),
                                 .quiet = line.has("quiet"),
                                 .json = line.has("json")};
  if (options.minimumScore > 100.0) refuse("--min-score", *line.value("min-score"));
  if (const auto saving = line.value("min-saving")) {
    const auto percentage = parsedPercentage(*saving);
    const auto bytes = parsedSize(*saving);
    if (!percentage && !bytes) refuse("--min-saving", *saving);
    options.minimumPercent = percentage.value_or(0);
    options.minimumBytes = bytes.value_or(0);
  }
  if (options.paths.empty() && !options.files0From) throw UsageError(_("Name at least one file or folder"));
  if (options.quiet && options.verbose) throw UsageError(_("-v and -q exclude each other"));
  if (options.output && options.output->empty()) refuse("--output", "");
  return options;
}

HistoryOptions historyOptions(const Line& line) {
  const auto moment = [](std::string_view text) { return parsedMoment(text, Date::now()); };
  return {.json = line.has("json"), .since = parsedValue(line, "since", moment), .paths = line.words};
}

CompletionOptions completionOptions(const Line& line) {
  const std::string& shell = line.words.front();
  if (shell != "bash" && shell != "zsh" && shell != "fish") refuse("completion", shell);
  return {.shell = shell};
}

HelpOptions helpOptions(const Line& line) {
  if (line.words.empty()) return {};
  if (commandSpec(line.words.front()) == nullptr) {
    throw UsageError(filled(_("There is no command “{1}”"), {printable(line.words.front())}));
  }
  return {.command = line.words.front()};
}

void parseOptions(std::string_view command, const Line& line, ParsedCommand& parsed) {
  if (command == "compress") {
    parsed.options = compressOptions(line);
  } else if (command == "history") {
    parsed.options = historyOptions(line);
  } else if (command == "restore") {
    parsed.options =
        RestoreOptions{.dryRun = line.has("dry-run"), .to = line.value("to"), .selectors = line.words};
  } else if (command == "compare") {
    parsed.options = CompareOptions{.output = line.value("output"), .selectors = line.words};
  } else if (command == "explain") {
    parsed.options = ExplainOptions{.json = line.has("json"), .selector = line.words.front()};
  } else if (command == "forget") {
    parsed.options = ForgetOptions{.olderThan = parsedValue(line, "older-than", parsedAge),
                                   .selector = line.words.front()};
  } else if (command == "status") {
    parsed.options = StatusOptions{.json = line.has("json")};
  } else if (command == "completion") {
    parsed.options = completionOptions(line);
  } else {
    parsed.options = helpOptions(line);
  }
}

void checkWords(const CommandSpec& spec, const Line& line) {
  if (std::ranges::any_of(line.words, &std::string::empty))
    throw UsageError(_("An empty name names nothing"));
  if (line.words.size() >= spec.minimumWords && line.words.size() <= spec.maximumWords) return;
  throw UsageError(filled(_("Usage: tidewell {1} {2}"), {spec.name, spec.arguments}));
}

std::optional<Terminal::Color> parsedColor(std::string_view text) {
  using enum Terminal::Color;
  constexpr std::pair<std::string_view, Terminal::Color> colors[] = {
      {"auto", automatic}, {"never", never}, {"always", always}};
  const auto* found = std::ranges::find(colors, text, &std::pair<std::string_view, Terminal::Color>::first);
  return found == std::end(colors) ? std::nullopt : std::optional(found->second);
}

}  // namespace

ParsedCommand parseCommandLine(std::span<const char* const> arguments) {
  if (arguments.empty()) throw UsageError(_("Usage: tidewell COMMAND [OPTIONS] ..."));
  const std::string first = arguments.front();
  ParsedCommand parsed;
  if (first == "--version") {
    parsed.options = VersionOptions{};
    return parsed;
  }
  const CommandSpec* spec = commandSpec(first == "-h" || first == "--help" ? "help" : first);
  if (spec == nullptr) {
    const bool isOption = first.size() > 1 && first.front() == '-';
    throw UsageError(filled(isOption ? _("There is no option {1} here") : _("There is no command “{1}”"),
                            {printable(first)}));
  }
  const auto rest = arguments.subspan(1);
  const Line line = parseLine(*spec, {rest.begin(), rest.end()});
  parsed.color = parsedValue(line, "color", parsedColor).value_or(Terminal::Color::automatic);
  if (line.has("help")) {
    parsed.options = HelpOptions{.command = spec->name};
    return parsed;
  }
  checkWords(*spec, line);
  parseOptions(spec->name, line, parsed);
  return parsed;
}

}  // namespace tidewell
