// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QAbstractTableModel>
#include <optional>

#include "CompressionKit/batch/Reports.h"

namespace tidewell::desktop {

/// The attempts of one report.
class AttemptsModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { Attempt, Size, Score, Verdict, ColumnCount };
  enum Role {
    SortRole = Qt::UserRole + 1,
    BytesRole,   ///< qlonglong; nothing where nothing came out
    ScoreRole,   ///< double; nothing where none was measured
    TakenRole,   ///< bool: it became the file
    PassedRole,  ///< bool
  };

  using QAbstractTableModel::QAbstractTableModel;

  void setReport(std::optional<Report> report);
  const std::optional<Report>& report() const { return report_; }
  /// The highest score that was refused for being too low: the floor lies above it.
  std::optional<double> highestTooLow() const;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

 private:
  bool isTaken(const CandidateDiagnostic& attempt) const;
  QString text(const CandidateDiagnostic& attempt, int column) const;

  std::optional<Report> report_;
};

}  // namespace tidewell::desktop
