// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Interface.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

/// What may stand in a place, as far as a shell can offer it.
enum class Words { none, files, directories, choices };

/// Of the value of an option.
Words wordsOf(std::string_view value) {
  if (value == "DIR") return Words::directories;
  if (value.starts_with("FILE")) return Words::files;
  return value.find('|') != std::string_view::npos ? Words::choices : Words::none;
}

bool takes(const CommandSpec& spec, std::string_view word) {
  return std::string_view(spec.arguments).find(word) != std::string_view::npos;
}

bool takesFiles(const CommandSpec& spec) {
  return takes(spec, "PATH");
}

/// The words that stand in a command's place for an ID, "latest" among them, and those of a choice.
std::vector<std::string> fixedWords(const CommandSpec& spec) {
  std::vector<std::string> words;
  for (const char* word : {"latest", "all", "bash", "zsh", "fish"}) {
    if (takes(spec, word)) words.emplace_back(word);
  }
  if (takes(spec, "COMMAND")) {
    for (const auto& other : commandSpecs()) words.emplace_back(other.name);
  }
  return words;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts(1);
  for (const char character : text) {
    if (character == separator) {
      parts.emplace_back();
    } else {
      parts.back() += character;
    }
  }
  return parts;
}

std::string replaced(std::string text, std::string_view what, std::string_view with) {
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

/// Between single quotes in a POSIX shell.
std::string quoted(std::string_view text) {
  return "'" + replaced(std::string(text), "'", "'\\''") + "'";
}

/// The IDs that the history knows; one a line.
constexpr std::string_view listIDs =
    R"sh(tidewell history --json 2>/dev/null | sed -n 's/.*"id":"\([^"]*\)".*/\1/p')sh";

// --- bash ------------------------------------------------------------------------------------------------

std::string bashOffer(std::string_view value) {
  const auto reply = [](std::string_view what) {
    return filled(R"sh(mapfile -t COMPREPLY < <(compgen {1} -- "$current"))sh", {what});
  };
  switch (wordsOf(value)) {
    case Words::files:
      return "compopt -o filenames; " + reply("-f");
    case Words::directories:
      return "compopt -o filenames; " + reply("-d");
    case Words::choices:
      return reply("-W '" + replaced(std::string(value), "|", " ") + "'");
    case Words::none:
      break;
  }
  return ":";
}

/// What follows the options that take a value.
std::string bashValueCases(const CommandSpec& spec) {
  std::string text;
  for (const auto& option : spec.options) {
    if (option.value == nullptr) continue;
    std::string patterns;
    for (const auto& name : split(option.names, ',')) {
      patterns += (patterns.empty() ? "" : "|") + filled("{1}\\ {2}", {spec.name, name});
    }
    text += filled("    {1})\n      {2}\n      return ;;\n", {patterns, bashOffer(option.value)});
  }
  return text;
}

std::string bashWordCase(const CommandSpec& spec) {
  std::vector<std::string> options;
  for (const auto& option : spec.options) {
    for (auto& name : split(option.names, ',')) options.push_back(std::move(name));
  }
  return filled("    {1})\n      options='{2}' words='{3}'{4}{5} ;;\n",
                {spec.name, joined(options), joined(fixedWords(spec)), takesFiles(spec) ? " files=yes" : "",
                 takes(spec, "ID") ? " ids=yes" : ""});
}

constexpr const char* bashFrame = R"sh(_tidewell() {
  local current=${COMP_WORDS[COMP_CWORD]} options='' words='' files='' ids=''
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W '{1} --help --version' -- "$current")
    return
  fi
  case ${COMP_WORDS[1]}\ ${COMP_WORDS[COMP_CWORD-1]} in
{2}  esac
  case ${COMP_WORDS[1]} in
{3}  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    return
  fi
  if [[ $ids ]]; then words="$words $({4})"; fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  if [[ $files ]]; then
    compopt -o filenames
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -F _tidewell tidewell)sh";

std::string bashCompletion() {
  std::vector<std::string> names;
  std::string values;
  std::string words;
  for (const auto& spec : commandSpecs()) {
    names.emplace_back(spec.name);
    values += bashValueCases(spec);
    words += bashWordCase(spec);
  }
  return filled(bashFrame, {joined(names), values, words, listIDs});
}

// --- zsh -------------------------------------------------------------------------------------------------

std::string zshAction(std::string_view value) {
  switch (wordsOf(value)) {
    case Words::files:
      return "_files";
    case Words::directories:
      return "_files -/";
    case Words::choices:
      return "(" + replaced(std::string(value), "|", " ") + ")";
    case Words::none:
      break;
  }
  return " ";
}

std::string zshOption(const OptionSpec& option) {
  std::string text = replaced(_(option.text), "[", "\\[");
  text = "[" + replaced(replaced(std::move(text), "]", "\\]"), ":", "\\:") + "]";
  if (option.value != nullptr) {
    text += ":" + replaced(option.value, "|", " ") + ":" + zshAction(option.value);
  }
  const auto names = split(option.names, ',');
  const bool repeats = option.longName() == "exclude";
  const std::string words = repeats ? "*" : "(" + joined(names) + ")";
  std::string result;
  for (const auto& name : names) {
    const char* joins = option.value == nullptr ? "" : name.starts_with("--") ? "=" : "+";
    result += " \\\n        " + quoted(words + name + joins + text);
  }
  return result;
}

std::string zshCase(const CommandSpec& spec) {
  std::string text = std::string("    ") + spec.name + ")\n      _arguments -s -S";
  for (const auto& option : spec.options) text += zshOption(option);
  const bool ids = takes(spec, "ID");
  const std::string words = joined(fixedWords(spec));
  if (ids || takesFiles(spec) || !words.empty()) {
    std::string actions;
    if (!words.empty()) actions += "compadd -- " + words + "; ";
    if (ids) actions += "compadd -- $(" + std::string(listIDs) + "); ";
    if (takesFiles(spec)) actions += "_files; ";
    text += " \\\n        " + quoted("*: :{" + replaced(actions, ":", "\\:") + "}");
  }
  return text + " ;;\n";
}

constexpr const char* zshFrame = R"sh(#compdef tidewell
_tidewell() {
  local -a commands=(
{1}  )
  if ((CURRENT == 2)); then
    _describe command commands
    compadd -- --help --version
    return
  fi
  local command=$words[2]
  shift words
  ((CURRENT--))
  case $command in
{2}  esac
}
if [[ $funcstack[1] == _tidewell ]]; then _tidewell "$@"; else compdef _tidewell tidewell; fi)sh";

std::string zshCompletion() {
  std::string names;
  std::string cases;
  for (const auto& spec : commandSpecs()) {
    names += "    " + quoted(std::string(spec.name) + ":" + replaced(_(spec.summary), ":", "\\:")) + "\n";
    cases += zshCase(spec);
  }
  return filled(zshFrame, {names, cases});
}

// --- fish ------------------------------------------------------------------------------------------------

std::string fishQuoted(std::string_view text) {
  return "'" + replaced(replaced(std::string(text), "\\", "\\\\"), "'", "\\'") + "'";
}

std::string fishOption(const std::string& start, const OptionSpec& option) {
  std::string line = start;
  for (const auto& name : split(option.names, ',')) {
    line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  if (option.value != nullptr) {
    const std::string_view value = option.value;
    const Words words = wordsOf(value);
    if (words == Words::files) line += " -r -F";
    if (words == Words::directories) line += " -x -a '(__fish_complete_directories)'";
    if (words == Words::choices) line += " -x -a " + fishQuoted(replaced(std::string(value), "|", " "));
    if (words == Words::none) line += " -x";
  }
  return line + " -d " + fishQuoted(_(option.text)) + "\n";
}

std::string fishCompletion() {
  std::string text = "complete -c tidewell -f\n";
  const std::string first = "complete -c tidewell -n __fish_use_subcommand";
  text += first + " -l help\n" + first + " -l version\n";
  for (const auto& spec : commandSpecs()) {
    text += first + " -a " + spec.name + " -d " + fishQuoted(_(spec.summary)) + "\n";
    const std::string start =
        std::string("complete -c tidewell -n '__fish_seen_subcommand_from ") + spec.name + "'";
    for (const auto& option : spec.options) text += fishOption(start, option);
    if (takesFiles(spec)) text += start + " -F\n";
    if (const auto words = joined(fixedWords(spec)); !words.empty()) {
      text += start + " -a " + fishQuoted(words) + "\n";
    }
    if (takes(spec, "ID")) text += start + " -a " + fishQuoted("(" + std::string(listIDs) + ")") + "\n";
  }
  text.pop_back();
  return text;
}

}  // namespace

int runCompletion(const CompletionOptions& options, Terminal& terminal) {
  if (options.shell == "bash") {
    terminal.print(bashCompletion());
  } else if (options.shell == "zsh") {
    terminal.print(zshCompletion());
  } else {
    terminal.print(fishCompletion());
  }
  return done;
}

}  // namespace tidewell
