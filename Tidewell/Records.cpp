// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/Records.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "CompressionKit/platform/Base64.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "CompressionKit/wording/Undo.h"
#include "Tidewell/Output.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

/// As many of them as help.
void tellCandidates(const std::vector<UndoRecord>& candidates, Terminal& terminal) {
  constexpr std::size_t most = 20;
  for (std::size_t i = 0; i < std::min(candidates.size(), most); ++i) {
    const UndoRecord& record = candidates[i];
    terminal.tell("  " + record.id.string() + "  " + momentText(record.createdAt) + "  " +
                  printable(record.originalPath));
  }
  if (candidates.size() > most) terminal.tell("  …");
}

/// With its command, for the shell.
std::string copyingOut(const UndoRecord& record) {
  return filled(_("The backup can be copied out: {1}"), {"tidewell restore --to DIR " + shortID(record.id)});
}

}  // namespace

std::string shortID(const UUID& id) {
  constexpr std::size_t digits = 8;
  return id.string().substr(0, digits);
}

ExitStatus tellUnselected(const std::string& text, const SelectionError& error, Terminal& terminal) {
  const std::string shown = printable(text);
  if (!error.candidates().empty()) {
    terminal.complain(filled(_("“{1}” may mean several records:"), {shown}));
    tellCandidates(error.candidates(), terminal);
    return unknownID;
  }
  if (text == "latest") {
    terminal.complain(_("No replacement is recorded"));
    return unknownID;
  }
  try {
    const bool isFolder = files::resourceValues(URL::file(text)).isDirectory;
    terminal.complain(
        filled(isFolder ? _("Nothing below “{1}” is recorded") : _("“{1}” has no record"), {shown}));
    return isFolder ? done : unknownID;
  } catch (const FileError&) {
  }
  if (text.find('/') == text.npos && text.find('.') == text.npos) {
    terminal.complain(filled(_("No record, batch or file is called “{1}”"), {shown}));
    return unknownID;
  }
  terminal.complain(filled(_("“{1}” has no record, and there is no such file"), {shown}));
  return failed;
}

History readHistory(Terminal& terminal) {
  History history{UndoStore()};
  if (const auto count = history.unreadable(); count > 0) {
    terminal.complain(counted("{1} record or batch cannot be read", "{1} records or batches cannot be read",
                              static_cast<std::int64_t>(count)));
  }
  return history;
}

Selected select(const History& history, const std::string& text, Terminal& terminal) {
  try {
    return {.status = done, .selection = history.select(text)};
  } catch (const SelectionError& error) {
    return {.status = tellUnselected(text, error, terminal), .selection = {}};
  }
}

ExitStatus statusOf(UndoActions::Outcome outcome) {
  switch (outcome) {
    case UndoActions::Outcome::done:
    case UndoActions::Outcome::nothingToDo:
      return done;
    case UndoActions::Outcome::edited:
      return editedSince;
    case UndoActions::Outcome::expired:
    case UndoActions::Outcome::backupMissing:
      return gone;
    case UndoActions::Outcome::backupDamaged:
    case UndoActions::Outcome::failed:
      break;
  }
  return failed;
}

void tellOutcome(const UndoRecord& record, const UndoActions& actions, const UndoActions::Result& result,
                 Terminal& terminal) {
  const std::string problem = problemText(record, result);
  if (problem.empty()) return;
  terminal.complain(problem);
  const bool mayBeCopied =
      result.outcome == UndoActions::Outcome::edited || result.outcome == UndoActions::Outcome::expired;
  if (mayBeCopied && files::exists(actions.store().backupURL(record))) terminal.tell(copyingOut(record));
}

void printFacts(const std::vector<Fact>& facts, Terminal& terminal) {
  std::size_t width = 0;
  for (const auto& [label, value] : facts) width = std::max(width, displayWidth(label));
  for (const auto& [label, value] : facts) {
    std::string line = label;
    line.append(width - displayWidth(label) + 2, ' ').append(value);
    terminal.print(line);
  }
}

void putPath(nlohmann::ordered_json& object, const std::string& key, const std::string& path) {
  object[key] = repairedUTF8(path);
  if (!isValidUTF8(path)) object[key + "_b64"] = base64Encoded(path);
}

}  // namespace tidewell
