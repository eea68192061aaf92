#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

struct Words {
  std::string_view code;
  const char* text;
};

constexpr Words reasons[] = {
    {"not_smaller", N_("not smaller than the original")},
    {"quality_below_threshold", N_("its loss could be seen: the score is too low")},
    {"metadata_mismatch", N_("size, orientation, frames or colours would have changed")},
    {"pixels_changed", N_("pixels changed where none may")},
    {"alpha_mismatch", N_("transparency changed")},
    {"gif_frame_quality_or_alpha", N_("the loss or the transparency of a frame could be seen")},
    {"empty_output", N_("the encoder wrote nothing")},
    {"component_error", N_("the tool failed")},
    {"missing_component", N_("the tool is not installed")},
};

constexpr Words outcomes[] = {
    {"replaced", N_("replaced by the smallest that passed")},
    {"converted", N_("the smallest that passed stands beside it")},
    {"skipped", N_("left as it was: nothing smaller passed")},
    {"failed", N_("left as it was: it failed")},
};

template <std::size_t count>
std::string worded(const Words (&table)[count], const std::string& code) {
  for (const auto& [known, text] : table) {
    if (known == code) return _(text);
  }
  return printable(code);
}

std::string verdict(const Report& report, const CandidateDiagnostic& attempt) {
  if (attempt.status == "accepted") {
    return report.selectedEncoder == attempt.encoder ? _("taken") : _("passed, another was smaller");
  }
  const std::string reason = worded(reasons, attempt.reason);
  return attempt.detail ? reason + " (" + printable(*attempt.detail) + ")" : reason;
}

void printText(const Report& report, const std::string& path, Terminal& terminal) {
  std::vector<Fact> facts{{_("File"), printable(path)}, {_("Compressed"), momentText(report.startedAt)}};
  if (report.profile) facts.emplace_back(_("Colours"), printable(*report.profile));
  facts.emplace_back(_("Outcome"), worded(outcomes, report.outcome));
  printFacts(facts, terminal);
  Table table({{_("Attempt"), Table::Align::left},
               {_("Size"), Table::Align::right},
               {_("Score"), Table::Align::right},
               {_("Verdict"), Table::Align::left}});
  for (const auto& attempt : report.attempts) {
    table.add({printable(attempt.encoder), attempt.bytes ? sizeText(*attempt.bytes) : "",
               attempt.score ? scoreText(*attempt.score) : "", verdict(report, attempt)});
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
  terminal.complain(filled(_("No report on “{1}” is left; those on the last {2} files are kept"),
                           {printable(path), std::to_string(ReportDirectory::reportsKept)}));
  return gone;
}

}  // namespace tidewell
