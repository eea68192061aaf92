// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QActionGroup>
#include <QWidget>
#include <array>
#include <vector>

#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/compare/CompareModel.h"

class QAction;
class QFormLayout;
class QKeySequence;
class QLabel;
class QLayout;
class QPushButton;
class QStackedWidget;

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

 protected:
  void hideEvent(QHideEvent* event) override;

 private:
  QAction* makeAction(const QString& text, const QKeySequence& key, const QString& tip);
  QLayout* makeTopBar();
  QLayout* makeBottomBar();
  QWidget* makeFacts();
  void makePlayActions();
  void showState();
  void showScale();
  void updateShown();
  void updatePlaying();
  void updateFacts();
  void addFact(const QString& name, const QString& value);
  void addFact(const QString& name, QLabel* label);

  CompareModel model_;
  QActionGroup group_{this};  ///< of `shown_`
  PictureView* view_;
  QStackedWidget* stack_;
  QLabel *message_, *zoom_ = nullptr, *remark_ = nullptr;
  QFormLayout* facts_ = nullptr;
  QPushButton* restore_ = nullptr;
  std::array<QAction*, 4> shown_{};  ///< in the order of `PictureView::Shown`
  QAction *sideBySide_ = nullptr, *play_ = nullptr;
  std::vector<QAction*> needPictures_, needFrames_;
};

}  // namespace tidewell::desktop
