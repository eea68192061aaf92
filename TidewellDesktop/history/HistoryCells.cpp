// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "CompressionKit/wording/Undo.h"
#include "TidewellDesktop/history/HistoryModel.h"
#include "TidewellDesktop/support/Columns.h"
#include "TidewellDesktop/support/Words.h"

// What the cells of the history say.

namespace tidewell::desktop {
namespace {

QString leftText(Date until, Date now) {
  return until > now ? words(durationText(until.since(now))) : QString();
}

QString nameOf(const UndoRecord& record) {
  QString original = shownPath(URL::file(record.originalPath).lastPathComponent());
  if (!record.convertedPath) return original;
  return original + QStringLiteral(" → ") + shownPath(URL::file(*record.convertedPath).lastPathComponent());
}

QString batchStateText(const HistoryBatch::Prospect& prospect, std::size_t records) {
  const auto restorable = static_cast<std::size_t>(prospect.restorable);
  if (restorable == 0) return words(_("nothing can be restored"));
  if (restorable == records) return words(_("can be restored"));
  return words(
      filled(_("{1} of {2} can be restored"), {std::to_string(restorable), std::to_string(records)}));
}

}  // namespace

QVariant HistoryModel::headerData(int section, Qt::Orientation orientation, int role) const {
  static constexpr TableColumn columns[ColumnCount] = {{N_("File")},         {N_("When")},
                                                       {N_("Before"), true}, {N_("After"), true},
                                                       {N_("Saved"), true},  {N_("What can be done")},
                                                       {N_("Time left")},    {N_("Folder")}};
  return desktop::headerData(columns, section, orientation, role);
}

QVariant HistoryModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || !checkIndex(index)) return {};  // assistive programs ask for no cell too
  HistoryBatch& batch = *batchAt(index);
  if (role == Qt::TextAlignmentRole) return headerData(index.column(), Qt::Horizontal, role);
  HistoryRecord* record = recordAt(index);
  return record ? recordData(batch, *record, index.column(), role) : batchData(batch, index.column(), role);
}

QVariant HistoryModel::batchData(HistoryBatch& batch, int column, int role) const {
  const bool asksProspect =
      role == RestorableRole || (role == Qt::DisplayRole && (column == State || column == TimeLeft));
  if (asksProspect) wish(batch, nullptr);
  if (role == RestorableRole) return batch.prospect ? QVariant(batch.prospect->restorable) : QVariant();
  if (role != Qt::DisplayRole) return {};
  switch (column) {
    case Name:
      return words(counted("{1} file", "{1} files", std::ssize(batch.records)));
    case When:
      return words(momentText(batch.newest, now_()));
    case Before:
      return amountWords(sizeText(batch.before));
    case After:
      return amountWords(sizeText(batch.after));
    case Saved:
      return amountWords(savedText(batch.before, batch.after));
    case State:
      return batch.prospect ? batchStateText(*batch.prospect, batch.records.size()) : QString();
    case TimeLeft:
      return batch.prospect && batch.prospect->restorable > 0 ? leftText(batch.prospect->until, now_())
                                                              : QString();
    default:
      return {};
  }
}

QVariant HistoryModel::recordData(HistoryBatch& batch, HistoryRecord& record, int column, int role) const {
  const bool isShown = role == Qt::DisplayRole;
  if (role == StateRole || role == BackupRole || role == RestorableRole ||
      (isShown && (column == State || column == TimeLeft))) {
    wish(batch, &record);
  }
  const auto& known = record.prospect;
  switch (role) {
    case RecordRole:
      return QVariant::fromValue(record.entry->record);
    case StateRole:
      return known ? QVariant(static_cast<int>(known->state)) : QVariant();
    case BackupRole:
      return known ? QVariant(known->hasBackup) : QVariant();
    case RestorableRole:
      return known ? QVariant(record.isRestorable(now_()) ? 1 : 0) : QVariant();
    case Qt::ToolTipRole:
      return plainTip(column == State ? recordText(record, State).toString()
                                      : shownPath(record.entry->record.originalPath));
    case Qt::DisplayRole:
      return recordText(record, column);
    default:
      return {};
  }
}

QVariant HistoryModel::recordText(const HistoryRecord& record, int column) const {
  const UndoRecord& undo = record.entry->record;
  const Date until = record.entry->restorableUntil();
  switch (column) {
    case Name:
      return nameOf(undo);
    case When:
      return words(momentText(undo.createdAt, now_()));
    case Before:
      return amountWords(sizeText(undo.originalBytes));
    case After:
      return amountWords(sizeText(undo.replacementBytes));
    case Saved:
      return amountWords(savedText(undo.originalBytes, undo.replacementBytes));
    case State: {
      if (!record.prospect) return QString();
      auto [state, hasBackup] = *record.prospect;
      // Time runs out between two looks.
      if (state == History::State::restorable && now_() >= until) state = History::State::expired;
      return words(prospectText(state, until, hasBackup, now_()));
    }
    case TimeLeft:
      return record.isRestorable(now_()) ? leftText(until, now_()) : QString();
    case Folder:
      return amountWords(
          shownPath(URL::file(undo.originalPath).deletingLastPathComponent().path()).toStdString());
    default:
      return {};
  }
}

}  // namespace tidewell::desktop
