// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QWidget>

#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/explain/AttemptsModel.h"

class QFormLayout;
class QLabel;
class QSortFilterProxyModel;
class QStackedLayout;
class QTreeView;

namespace tidewell::desktop {

class AttemptsPlot;

/// Why a file is what it is: what was tried with it, and what was said of each.
class ExplainPage : public QWidget {
  Q_OBJECT

 public:
  explicit ExplainPage(QWidget* parent = nullptr) : ExplainPage(UndoStore(), parent) {}
  explicit ExplainPage(const UndoStore& store, QWidget* parent = nullptr);

  /// Shows the newest report on `source` that was begun no later than `before`, or that none is left.
  void open(const URL& source, Date before);

 private:
  struct Found;
  QWidget* makeReport();
  void showFound(Found&& found, int asked);
  void showFacts(const Report& report);
  void pick(int row);

  UndoStore store_;
  int asked_ = 0;  ///< only the last one that was asked for is shown
  AttemptsModel model_;
  QSortFilterProxyModel* sorted_ = nullptr;
  QStackedLayout* pages_ = nullptr;
  QWidget* report_ = nullptr;
  QLabel* notice_ = nullptr;
  QFormLayout* facts_ = nullptr;
  AttemptsPlot* plot_ = nullptr;
  QTreeView* table_ = nullptr;
};

}  // namespace tidewell::desktop
