// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/explain/AttemptsModel.h"

#include <algorithm>
#include <utility>

#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Attempts.h"
#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/support/Columns.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

void AttemptsModel::setReport(std::optional<Report> report) {
  beginResetModel();
  report_ = std::move(report);
  endResetModel();
}

std::optional<double> AttemptsModel::highestTooLow() const {
  std::optional<double> highest;
  if (!report_) return highest;
  for (const auto& attempt : report_->attempts) {
    if (attempt.reason == "quality_below_threshold" && attempt.score) {
      highest = std::max(highest.value_or(*attempt.score), *attempt.score);
    }
  }
  return highest;
}

int AttemptsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() || !report_ ? 0 : static_cast<int>(report_->attempts.size());
}

int AttemptsModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : ColumnCount;
}

bool AttemptsModel::isTaken(const CandidateDiagnostic& attempt) const {
  return attempt.status == "accepted" && report_->selectedEncoder == attempt.encoder;
}

QVariant AttemptsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || !checkIndex(index)) return {};  // assistive programs ask for no cell too
  const auto& attempt = report_->attempts[static_cast<std::size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
      return text(attempt, index.column());
    case Qt::TextAlignmentRole:
      return headerData(index.column(), Qt::Horizontal, role);
    case Qt::ToolTipRole:
      return plainTip(text(attempt, Verdict));
    case SortRole:
      if (index.column() == Size) return attempt.bytes ? QVariant(qlonglong{*attempt.bytes}) : QVariant();
      if (index.column() == Score) return attempt.score ? QVariant(*attempt.score) : QVariant();
      return text(attempt, index.column());
    case BytesRole:
      return attempt.bytes ? QVariant(qlonglong{*attempt.bytes}) : QVariant();
    case ScoreRole:
      return attempt.score ? QVariant(*attempt.score) : QVariant();
    case TakenRole:
      return isTaken(attempt);
    case PassedRole:
      return attempt.status == "accepted";
    default:
      return {};
  }
}

QString AttemptsModel::text(const CandidateDiagnostic& attempt, int column) const {
  switch (column) {
    case Attempt:
      return words(encoderText(attempt.encoder));
    case Size:
      return attempt.bytes ? amountWords(sizeText(*attempt.bytes)) : QString();
    case Score:
      return attempt.score ? words(scoreText(*attempt.score)) : QString();
    default:
      return words(verdictText(*report_, attempt));
  }
}

QVariant AttemptsModel::headerData(int section, Qt::Orientation orientation, int role) const {
  static constexpr TableColumn columns[ColumnCount] = {
      {N_("Attempt")}, {N_("Size"), true}, {N_("Score"), true}, {N_("Verdict")}};
  return desktop::headerData(columns, section, orientation, role);
}

}  // namespace tidewell::desktop
