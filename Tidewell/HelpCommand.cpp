// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Interface.h"
#include "Tidewell/Output.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

struct Entry {
  std::string term;
  std::string text;
};

constexpr std::size_t comfortableColumns = 100;
constexpr std::size_t narrowestText = 20;

/// Terms on the left and their texts beside them.
void printEntries(const std::vector<Entry>& entries, Terminal& terminal) {
  std::size_t width = 0;
  for (const auto& entry : entries) width = std::max(width, displayWidth(entry.term));
  const std::size_t columns = terminal.columns() == 0 ? comfortableColumns : terminal.columns();
  const std::size_t textColumns = std::max(columns, width + 4 + narrowestText) - width - 4;
  for (const auto& entry : entries) {
    std::string start = "  " + entry.term + std::string(width - displayWidth(entry.term) + 2, ' ');
    for (const auto& line : wrapped(entry.text, textColumns)) {
      terminal.print(std::exchange(start, std::string(width + 4, ' ')) + line);
    }
  }
}

std::string termOf(const OptionSpec& option) {
  std::string term = option.names;
  if (const auto comma = term.find(','); comma != std::string::npos) {
    term.insert(comma + 1, " ");
  } else {
    term.insert(0, "    ");
  }
  return option.value == nullptr ? term : term + " " + option.value;
}

void printProgramHelp(Terminal& terminal) {
  terminal.print(_("Makes pictures smaller, measures every result, and can undo it."));
  terminal.print("");
  terminal.print(filled(_("Usage: tidewell {1} {2}"), {"COMMAND", "[OPTIONS] ..."}));
  terminal.print("");
  std::vector<Entry> entries;
  for (const auto& spec : commandSpecs()) entries.push_back({spec.name, _(spec.summary)});
  printEntries(entries, terminal);
  terminal.print("");
  printEntries({{"-h, --help", _("tell this")}, {"    --version", _("tell the version")}}, terminal);
  terminal.print("");
  terminal.print(
      _("“tidewell help COMMAND” tells about one of them, its manual page (“man tidewell-COMMAND”) more."));
}

}  // namespace

int runHelp(const HelpOptions& options, Terminal& terminal) {
  if (!options.command) {
    printProgramHelp(terminal);
    return done;
  }
  const CommandSpec& spec = *commandSpec(*options.command);
  terminal.print(filled(_("Usage: tidewell {1} {2}"), {spec.name, spec.arguments}));
  terminal.print("");
  terminal.print(std::string("  ") + _(spec.summary));
  terminal.print("");
  std::vector<Entry> entries;
  for (const auto& option : spec.options) entries.push_back({termOf(option), _(option.text)});
  printEntries(entries, terminal);
  return done;
}

}  // namespace tidewell
