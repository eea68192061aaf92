// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>
#include <vector>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "CompressionKit/wording/Undo.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

using Entries = std::vector<const History::Entry*>;

std::string jsonLine(const History::Entry& entry, History::State state) {
  const UndoRecord& record = entry.record;
  nlohmann::ordered_json line = {{"id", record.id.string()}, {"batch", record.sessionID.string()}};
  putPath(line, "path", record.originalPath);
  if (record.convertedPath) putPath(line, "convertedPath", *record.convertedPath);
  line["originalBytes"] = record.originalBytes;
  line["replacementBytes"] = record.replacementBytes;
  line["createdAt"] = record.createdAt.iso8601();
  line["restorableUntil"] = entry.restorableUntil().iso8601();
  line["state"] = History::rawValue(state);
  return line.dump();
}

/// What can still be done with the record.
std::string prospect(const History& history, const History::Entry& entry) {
  const bool hasBackup = files::exists(history.store().backupURL(entry.record));
  return prospectText(history.state(entry), entry.restorableUntil(), hasBackup);
}

std::string rememberedScore(OutputMemory& memory, const UndoRecord& record) {
  const auto output = memory.output(record.replacementHash);
  return output && output->score ? scoreText(*output->score) : "";
}

/// Some rows at a time: the columns of a long batch need not wait for its end.
void printRows(const History& history, const Entries& entries, OutputMemory& memory, Terminal& terminal) {
  using Align = Table::Align;
  constexpr std::size_t rowsAtOnce = 500;
  for (std::size_t begin = 0; begin < entries.size() && !terminal.isClosed(); begin += rowsAtOnce) {
    Table table({{_("ID"), Align::left},
                 {_("When"), Align::left},
                 {_("Before"), Align::right},
                 {_("After"), Align::right},
                 {_("Saved"), Align::right},
                 {_("Score"), Align::right},
                 {_("File"), Align::left},
                 {_("What can be done"), Align::left}});
    for (std::size_t i = begin; i < std::min(entries.size(), begin + rowsAtOnce); ++i) {
      const UndoRecord& record = entries[i]->record;
      const std::string name = record.convertedPath ? record.originalPath + " → " +
                                                          URL::file(*record.convertedPath).lastPathComponent()
                                                    : record.originalPath;
      table.add({shortID(record.id), momentText(record.createdAt), sizeText(record.originalBytes),
                 sizeText(record.replacementBytes), savedText(record.originalBytes, record.replacementBytes),
                 rememberedScore(memory, record), printable(name), prospect(history, *entries[i])});
    }
    table.print(terminal);
  }
}

void printBatch(const History& history, const Entries& batch, OutputMemory& memory, Terminal& terminal) {
  std::int64_t saved = 0;
  for (const auto* entry : batch) saved += savedBytes(entry->record);
  const UndoRecord& newest = batch.front()->record;
  const std::string files = counted("{1} file", "{1} files", std::ssize(batch));
  terminal.print(terminal.styled(
      Terminal::Style::good,
      filled(_("Batch {1}, {2}: {3}, {4} saved"),
             {shortID(newest.sessionID), momentText(newest.createdAt), files, sizeText(saved)})));
  printRows(history, batch, memory, terminal);
  terminal.print("");
}

/// What the paths name, each once, in the order of the history.
Entries selected(const History& history, const HistoryOptions& options, Terminal& terminal,
                 StatusOfMany& status) {
  std::unordered_set<const History::Entry*> named;
  for (const auto& path : options.paths) {
    const auto [found, selection] = select(history, path, terminal);
    // A file that was never compressed has an empty history.
    status.add(found == unknownID && files::exists(URL::file(path)) ? done : found);
    named.insert(selection.entries.begin(), selection.entries.end());
  }
  Entries entries;
  for (const auto& entry : history.entries()) {
    if (options.since && entry.record.createdAt < *options.since) continue;
    if (options.paths.empty() || named.contains(&entry)) entries.push_back(&entry);
  }
  return entries;
}

}  // namespace

int runHistory(const HistoryOptions& options, Terminal& terminal) {
  const History history = readHistory(terminal);
  StatusOfMany status;
  if (history.unreadable() > 0) status.add(failed);
  const Entries entries = selected(history, options, terminal, status);
  if (options.json) {
    for (const auto* entry : entries) {
      if (terminal.isClosed()) break;
      terminal.print(jsonLine(*entry, history.state(*entry)));
    }
    return status.value();
  }
  if (entries.empty() && status.value() == done) terminal.print(_("No replacement is recorded"));
  OutputMemory memory;
  for (auto begin = entries.begin(); begin != entries.end() && !terminal.isClosed();) {
    const UUID& batch = (*begin)->record.sessionID;
    const auto end = std::find_if(begin, entries.end(),
                                  [&](const auto* entry) { return entry->record.sessionID != batch; });
    printBatch(history, {begin, end}, memory, terminal);
    begin = end;
  }
  return status.value();
}

}  // namespace tidewell
