#pragma once

#include <QWidget>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "TidewellDesktop/history/UndoWorker.h"

class QAction;
class QLabel;
class QProgressBar;
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
  void makeActions();
  void makeView();
  void showState();
  void showSummary(const UndoSummary& summary);
  void updateActions();
  std::vector<UndoRecord> selected() const;
  void restoreBatch();
  void forget();
  void copyOut();
  void keepPlace();
  void findPlace();

  HistoryModel& model_;
  UndoWorker& worker_;
  QTreeView* view_ = nullptr;
  QLabel* empty_ = nullptr;
  QLabel* status_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QStackedLayout* pages_ = nullptr;
  QAction *restore_ = nullptr, *restoreBatch_ = nullptr, *forget_ = nullptr, *copyOut_ = nullptr,
          *compare_ = nullptr, *explain_ = nullptr;
};

}  // namespace tidewell::desktop
