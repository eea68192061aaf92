#pragma once

#include <QWidget>

#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/compare/CompareModel.h"

class QAction;
class QFormLayout;
class QLabel;
class QPushButton;
class QStackedWidget;
class QToolBar;

namespace tidewell::desktop {

class PictureView;

/// An original and what was made of it, to look at closely, with the facts beside them.
class ComparePage : public QWidget {
  Q_OBJECT

 public:
  explicit ComparePage(const UndoStore& store, QWidget* parent = nullptr);
  ~ComparePage() override;

  void open(const UndoRecord& record);
  /// Lets go of the pictures; the page is empty.
  void close();
  CompareModel& model() { return model_; }

 Q_SIGNALS:
  void restoreRequested(UndoRecord record);
  /// The user wants to go back.
  void closed();

 private:
  void makeBar();
  void makeShownActions();
  void makeZoomActions();
  void makePlayActions();
  QWidget* makeFacts();
  void update();
  void updateZoom();
  void updateFacts();

  CompareModel model_;
  PictureView* view_;
  QToolBar* bar_;
  QStackedWidget* stack_;
  QLabel *message_, *zoom_, *remark_;
  QFormLayout* facts_;
  QPushButton* restore_;
  QAction *difference_ = nullptr, *sideBySide_ = nullptr, *play_ = nullptr;
};

}  // namespace tidewell::desktop
