// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/CompressReport.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/JSON.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"

namespace tidewell {
namespace {

using Reason = FileReport::Reason;
using Outcome = FileReport::Outcome;

constexpr auto statusInterval = std::chrono::seconds(1);
/// Files end in nearly the order in which their records were made: as many as may be at work at once.
constexpr std::size_t recordsToDate = 16;

const char* described(Reason reason) {
  switch (reason) {
    case Reason::alreadyCompressed:
      return _("compressed before");
    case Reason::unsupported:
      return _("not a supported format");
    case Reason::belowMinimum:
      return _("too little to gain");
    case Reason::notSmaller:
      return _("nothing smaller was found");
    case Reason::embeddedMedia:
      return _(
          "holds more than a picture (a video, say), which would be lost; --strip compresses it without");
  }
  return "";
}

/// For the sum of them.
std::string countedReason(Reason reason, std::int64_t count) {
  switch (reason) {
    case Reason::alreadyCompressed:
      return counted("{1} compressed before", "{1} compressed before", count);
    case Reason::unsupported:
      return counted("{1} of no supported format", "{1} of no supported format", count);
    case Reason::belowMinimum:
      return counted("{1} with too little to gain", "{1} with too little to gain", count);
    case Reason::notSmaller:
      return counted("{1} without anything smaller", "{1} without anything smaller", count);
    case Reason::embeddedMedia:
      return counted("{1} with more than a picture inside", "{1} with more than a picture inside", count);
  }
  return "";
}

bool isInterrupted(const FileReport& report) {
  return report.outcome == Outcome::failed && errorCode(report.error) == "interrupted";
}

std::string percentage(const FileReport& report) {
  if (!report.originalBytes || !report.finalBytes || *report.originalBytes == 0) return "";
  const double change = 100.0 * static_cast<double>(*report.finalBytes - *report.originalBytes) /
                        static_cast<double>(*report.originalBytes);
  char buffer[32] = {};
  std::snprintf(buffer, sizeof buffer, "%+.1f %%", change);
  return buffer;
}

OrderedJSON fileLine(const FileReport& report) {
  OrderedJSON line = {{"type", "file"}};
  addPath(line, "path", report.url.path());
  line["outcome"] = rawValue(report.outcome);
  if (report.output) {
    addPath(line, report.outcome == Outcome::converted ? "convertedPath" : "output", report.output->path());
  }
  if (report.originalBytes) line["originalBytes"] = *report.originalBytes;
  if (report.finalBytes) line["finalBytes"] = *report.finalBytes;
  if (report.score) line["score"] = *report.score;
  if (report.encoder) line["encoder"] = *report.encoder;
  if (report.record) line["id"] = report.record->string();
  if (report.reason) line["reason"] = rawValue(*report.reason);
  if (report.error) {
    line["error"] = {{"code", errorCode(report.error)}, {"message", describedError(report.error)}};
  }
  return line;
}

/// Whether no other batch may have a record as new as these: it would be the latest. Where clean-up has
/// touched an old one, the ID says the same.
bool isLatest(const UndoStore& store, const UUID& batch, Date since) {
  const auto isOlder = [&](const std::string& session) {
    const auto changedAt = files::resourceValues(store.root().appending(session)).changedAt;
    return session == batch.string() || static_cast<double>(changedAt) / 1e9 < since.since1970();
  };
  try {
    return std::ranges::all_of(files::namesInDirectory(store.root()), isOlder);
  } catch (const FileError&) {  // one that goes, for instance
    return false;
  }
}

}  // namespace

Restorable restorable(const UndoStore& store, const UUID& batch, const std::vector<UUID>& records) {
  Restorable result;
  const URL session = store.root().appending(batch.string());
  std::unordered_set<std::string> backups;
  try {
    for (const auto& name : files::namesInDirectory(session)) {
      const URL file = session.appending(name);
      if (UUID::isCanonical(file.stem()) && file.pathExtension() != "json") backups.insert(file.stem());
    }
  } catch (const FileError&) {
    return result;  // nothing was replaced
  }
  std::size_t dated = 0;
  for (const auto& id : records) {
    if (!backups.contains(id.string())) continue;
    ++result.files;
    if (++dated > recordsToDate) continue;
    try {
      const auto record = UndoRecord::read(session.appending(id.string() + ".json"));
      if (!record) continue;
      const Date until = record->createdAt.adding(UndoStore::backupRetention);
      result.until = std::min(result.until.value_or(until), until);
    } catch (const FileError&) {
    }
  }
  if (result.until && !isLatest(store, batch, result.until->adding(-UndoStore::backupRetention))) {
    result.selector = shortID(batch);
  }
  return result;
}

void CompressReporter::count(const FileReport& report) {
  ++totals_.files;
  totals_.savedBytes += report.savedBytes();
  if (report.reason) ++totals_.reasons[*report.reason];
  if (report.record) totals_.records.push_back(*report.record);
  if (report.outcome == Outcome::failed) {
    ++totals_.failed;
    if (isInterrupted(report)) ++totals_.unreached;
  } else if (report.reason) {
    ++totals_.skipped;
  } else {
    ++totals_.replaced;
  }
}

void CompressReporter::tell(const FileReport& report) {
  count(report);
  if (report.outcome == Outcome::failed && !isInterrupted(report)) {
    terminal_.complain(describedError(report.error, report.url.path()));
  }
  if (options_.json) {
    terminal_.print(dumped(fileLine(report)));
    tellStatus();
    terminal_.flush();
  } else if (!options_.quiet) {
    tellPerson(report);
    terminal_.flush();
  }
}

void CompressReporter::tellPerson(const FileReport& report) {
  const std::string path = printable(report.url.path());
  if (report.outcome == Outcome::failed) return;  // told as a complaint
  if (report.reason) {
    const std::string text = path + ": " + described(*report.reason);
    if (options_.verbose) {
      terminal_.print(text);
    } else if (report.isNamed && *report.reason == Reason::unsupported) {
      terminal_.tell(text);
    }
    return;
  }
  if (!options_.verbose) return;
  std::string line = path;
  if (report.output) line += " → " + printable(report.output->path());
  line += ": " + filled(_("{1} → {2} ({3})"),
                        {sizeText(report.originalBytes.value_or(0)), sizeText(report.finalBytes.value_or(0)),
                         terminal_.styled(Terminal::Style::good, percentage(report))});
  terminal_.print(line);
}

void CompressReporter::tellStatus() {
  const auto now = std::chrono::steady_clock::now();
  if (now - statusTold_ < statusInterval) return;
  statusTold_ = now;
  const Progress::State state = progress_.state();
  OrderedJSON line = {{"type", "status"}, {"files", state.files}, {"savedBytes", state.savedBytes}};
  if (state.totalFiles) line["totalFiles"] = *state.totalFiles;
  if (state.secondsLeft) line["secondsLeft"] = *state.secondsLeft;
  if (!state.current.empty()) addPath(line, "current", state.current);
  terminal_.print(dumped(line));
}

void CompressReporter::summarize(const Restorable& restorable) {
  if (options_.json) {
    OrderedJSON line = {
        {"type", "summary"},          {"files", totals_.files},        {"replaced", totals_.replaced},
        {"skipped", totals_.skipped}, {"failed", totals_.failed},      {"savedBytes", totals_.savedBytes},
        {"batch", batch_.string()},   {"restorable", restorable.files}};
    if (restorable.until) line["restorableUntil"] = restorable.until->iso8601();
    terminal_.print(dumped(line));
    return;
  }
  if (totals_.unreached != 0 && !terminal_.isClosed()) {
    terminal_.complain(counted("interrupted; {1} file was not reached",
                               "interrupted; {1} files were not reached", totals_.unreached));
  }
  if (options_.quiet) return;
  terminal_.print(summaryLine(restorable));
  if (totals_.skipped != 0) terminal_.print(passedOverLine());
  if (const auto failures = totals_.failed - totals_.unreached; failures != 0) {
    terminal_.print(terminal_.styled(Terminal::Style::bad, counted("{1} failed", "{1} failed", failures)));
  }
}

std::string CompressReporter::summaryLine(const Restorable& restorable) const {
  const std::string files = counted("{1} file", "{1} files", totals_.files - totals_.unreached);
  const std::string saved = terminal_.styled(Terminal::Style::bold, sizeText(totals_.savedBytes));
  if (options_.dryRun) return filled(_("{1}, {2} would be saved; nothing was changed"), {files, saved});
  std::string line = filled(_("{1}, {2} saved"), {files, saved});
  if (options_.output) return line + filled(_("; the copies are in {1}"), {printable(*options_.output)});
  if (!restorable.until) return line;
  const std::string until = momentText(*restorable.until);
  const std::string command = "tidewell restore " + restorable.selector;
  if (restorable.files == totals_.replaced) {
    return line + filled(_("; `{1}` undoes this until {2}"), {command, until});
  }
  return line + filled(_("; `{1}` brings {2} of {3} back until {4}"),
                       {command, std::to_string(restorable.files), std::to_string(totals_.replaced), until});
}

std::string CompressReporter::passedOverLine() const {
  std::string list;
  for (const auto& [reason, count] : totals_.reasons) {
    list += (list.empty() ? "" : _(", ")) + countedReason(reason, count);
  }
  return filled(_("passed over: {1}"), {list});
}

}  // namespace tidewell
