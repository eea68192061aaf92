// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/RowTraces.h"

#include <algorithm>
#include <string_view>

#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

RowState stateOf(std::string_view outcome) {
  return outcome == "replaced"    ? RowState::replaced
         : outcome == "converted" ? RowState::converted
         : outcome == "skipped"   ? RowState::skipped
                                  : RowState::failed;
}

QString whySkipped(const Report& report) {
  const auto has = [&](std::string_view reason) {
    return std::ranges::find(report.attempts, reason, &CandidateDiagnostic::reason) != report.attempts.end();
  };
  if (has("embedded_media")) return words(_("holds more than a picture (a video, say), which would be lost"));
  return words(has("below_minimum") ? _("too little to gain") : _("nothing smaller was found"));
}

/// What the last of the failed attempts says; the result of the batch will say more.
QString whyFailed(const Report& report) {
  for (auto attempt = report.attempts.rbegin(); attempt != report.attempts.rend(); ++attempt) {
    if (attempt->status == "error" && attempt->detail) return words(describedServiceText(*attempt->detail));
  }
  return {};
}

}  // namespace

void apply(const UndoRecord& record, FileRow& row) {
  row.record = record.id;
  row.batch = record.sessionID;
  row.before = record.originalBytes;
  if (record.state == UndoRecord::State::committed) {
    row.state = record.convertedPath ? RowState::converted : RowState::replaced;
    row.after = record.replacementBytes;
  } else if (!isDone(row.state)) {
    row.state = RowState::working;
  }
}

void apply(const Report& report, FileRow& row) {
  row.state = stateOf(report.outcome);
  row.encoder = report.selectedEncoder;
  if (row.state == RowState::failed) {
    row.after.reset();
    row.score.reset();
    row.record.reset();
    row.why = whyFailed(report);
    return;
  }
  for (const CandidateDiagnostic& attempt : report.attempts) {
    if (attempt.status != "accepted" || attempt.encoder != report.selectedEncoder) continue;
    row.score = attempt.score;
    if (!row.after) row.after = attempt.bytes;
  }
  if (row.state == RowState::skipped) {
    row.after = row.before;
    row.why = whySkipped(report);
  }
}

void apply(const BackgroundBatchResult::Item& item, FileRow& row) {
  row.state = stateOf(item.outcome);
  if (item.originalBytes) row.before = item.originalBytes;
  row.after = item.finalBytes;
  if (item.error) row.why = words(describedServiceText(*item.error));
  if (row.state == RowState::skipped && row.why.isEmpty()) row.why = words(_("nothing smaller was found"));
}

}  // namespace tidewell::desktop
