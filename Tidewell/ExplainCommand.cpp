// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Attempts.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

void printText(const Report& report, const std::string& path, Terminal& terminal) {
  std::vector<Fact> facts{{_("File"), printable(path)}, {_("Compressed"), momentText(report.startedAt)}};
  if (report.profile) facts.emplace_back(_("Colours"), printable(*report.profile));
  facts.emplace_back(_("Outcome"), outcomeText(report));
  printFacts(facts, terminal);
  Table table({{_("Attempt"), Table::Align::left},
               {_("Size"), Table::Align::right},
               {_("Score"), Table::Align::right},
               {_("Verdict"), Table::Align::left}});
  for (const auto& attempt : report.attempts) {
    table.add({encoderText(attempt.encoder), attempt.bytes ? sizeText(*attempt.bytes) : "",
               attempt.score ? scoreText(*attempt.score) : "", verdictText(report, attempt)});
  }
  if (table.empty()) return terminal.print(_("Nothing was attempted."));
  terminal.print("");
  table.print(terminal);
}

void printJSON(const Report& report, const std::string& path, const UndoRecord* record, Terminal& terminal) {
  nlohmann::ordered_json line;
  if (record) line["id"] = record->id.string();
  putPath(line, "path", path);
  line["startedAt"] = report.startedAt.iso8601();
  line["outcome"] = report.outcome;
  if (report.selectedEncoder) line["selectedEncoder"] = *report.selectedEncoder;
  if (report.profile) line["profile"] = *report.profile;
  line["attempts"] = nlohmann::json(report.attempts);
  terminal.print(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

}  // namespace

int runExplain(const ExplainOptions& options, Terminal& terminal) {
  const History history = readHistory(terminal);
  const UndoRecord* record = nullptr;
  // A file that was left as it was has a report, too.
  std::string path = URL::file(options.selector).standardized().path();
  Date before = Date::now();
  std::optional<SelectionError> unknown;
  try {
    record = &history.selectOne(options.selector).record;
    path = record->originalPath;
    before = record->createdAt;
  } catch (const SelectionError& error) {
    unknown = error;
  }
  std::optional<Report> report;
  if (record || unknown->candidates().empty()) {
    report = newestReport(history.store().diagnosticsDirectory(), path, before);
  }
  if (report) {
    options.json ? printJSON(*report, path, record, terminal) : printText(*report, path, terminal);
    return done;
  }
  if (!record && (!unknown->candidates().empty() || !files::exists(URL::file(path)))) {
    return tellUnselected(options.selector, *unknown, terminal);
  }
  terminal.complain(noReportText(path));
  return gone;
}

}  // namespace tidewell
