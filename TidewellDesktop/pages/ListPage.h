// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QTimer>
#include <QWidget>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "TidewellDesktop/pages/FileRowsView.h"

class QAction;
class QComboBox;
class QLineEdit;

namespace tidewell::desktop {

class AskBar;
class Workspace;

/// The files of the window, and what can be done with each.
class ListPage : public QWidget {
  Q_OBJECT

 public:
  /// `workspace` must outlive this.
  explicit ListPage(Workspace& workspace, QWidget* parent = nullptr);

  /// What can be done with the selected rows; for a menu.
  QList<QAction*> rowActions() const;
  void focusFilter();
  void focusCompress();
  /// As the question above the list has it.
  void compress();

 Q_SIGNALS:
  void compareRequested(const tidewell::UndoRecord& record);
  void explainRequested(const tidewell::URL& source, tidewell::Date before);
  void showInFolderRequested(const std::vector<tidewell::URL>& files);

 private:
  void makeActions();
  QAction* makeAction(const QString& text, const QKeySequence& shortcut, void (ListPage::*slot)());
  void connectFilter();
  void updateActions();
  void activate();
  void compare();
  void explain();
  void restore();
  void compressAgain();
  void showInFolder();

  Workspace& workspace_;
  ShownFiles shown_;
  AskBar* ask_ = nullptr;
  QLineEdit* filter_ = nullptr;
  QComboBox* kind_ = nullptr;
  FileRowsView* view_ = nullptr;
  QAction *compare_ = nullptr, *explain_ = nullptr, *restore_ = nullptr, *again_ = nullptr,
          *folder_ = nullptr;
  QTimer updateSoon_;  ///< for a long selection, whose rows change one by one
};

}  // namespace tidewell::desktop
