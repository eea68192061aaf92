#pragma once

#include <QWidget>
#include <optional>

#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/explain/AttemptsModel.h"

class QFormLayout;
class QLabel;
class QStackedLayout;
class QTreeView;

namespace tidewell::desktop {

class AttemptsPlot;

/// Why a file is what it is: what was tried with it, and what was said of each.
class ExplainPage : public QWidget {
  Q_OBJECT

 public:
  explicit ExplainPage(QWidget* parent = nullptr);
  explicit ExplainPage(const UndoStore& store, QWidget* parent = nullptr);

  /// Shows the newest report on `source` that was begun no later than `before`, or that none is left.
  void open(const URL& source, Date before);

 private:
  struct Found;
  void makeReportPage();
  void show(const Found& found);
  void showFacts(const Report& report);

  UndoStore store_;
  std::optional<URL> source_;  ///< asked for last
  Date before_;
  AttemptsModel model_;
  QStackedLayout* pages_ = nullptr;
  QLabel* notice_ = nullptr;
  QFormLayout* facts_ = nullptr;
  AttemptsPlot* plot_ = nullptr;
  QTreeView* table_ = nullptr;
};

}  // namespace tidewell::desktop
