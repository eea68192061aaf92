// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <optional>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "TidewellDesktop/history/UndoWorker.h"

class QAction;
class QLabel;
class QLayout;
class QModelIndex;
class QProgressBar;
class QPushButton;
class QStackedLayout;
class QTreeView;

namespace tidewell::desktop {

class HistoryModel;

/// The history of replacements and what can be done with it. Model and worker must outlive it.
class HistoryPage : public QWidget {
  Q_OBJECT

 public:
  HistoryPage(HistoryModel& model, UndoWorker& worker, QWidget* parent = nullptr);

 Q_SIGNALS:
  void compareRequested(const tidewell::UndoRecord& record);
  /// The newest report on `source` that was begun no later than `before` is wanted.
  void explainRequested(const tidewell::URL& source, tidewell::Date before);

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void makeView();
  void makeActions();
  QLayout* makeStatus();
  QLayout* makeButtons();
  void showLoaded();
  void showProgress(int done, int of);
  void showSummary(const UndoSummary& summary);
  void showDetails();
  void updateActions();

  /// What is selected, each once.
  std::vector<UndoRecord> selected() const;
  /// The one that is selected; nothing for a batch, or several.
  std::optional<UndoRecord> selectedOne() const;
  /// The batch of all that is selected; invalid where there are none or several.
  QModelIndex selectedBatch() const;
  /// `role` says so of a selected row, or nobody knows yet, or there are too many to ask.
  bool mayBe(int role) const;
  void restoreBatch();
  void forget();
  void copyOut();
  void activate(const QModelIndex& index);

  void keepPlace();
  void findPlace();

  HistoryModel& model_;
  UndoWorker& worker_;
  QTreeView* view_ = nullptr;
  QLabel* notice_ = nullptr;  ///< in place of an empty view
  QLabel* status_ = nullptr;
  QString problem_;  ///< of the model, as it was told last
  QPushButton* details_ = nullptr;
  QPushButton* stop_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QStackedLayout* pages_ = nullptr;
  QAction *restore_ = nullptr, *restoreBatch_ = nullptr, *compare_ = nullptr, *explain_ = nullptr,
          *copyOut_ = nullptr, *forget_ = nullptr;
  QTimer updateSoon_;  ///< for a long selection, whose rows change one by one
  QStringList told_;   ///< all that the last summary has to say

  struct Place {
    std::vector<UUID> open;
    std::optional<UUID> batch, record;
    int scroll = 0;
  } place_;  ///< while the model begins anew
};

}  // namespace tidewell::desktop
