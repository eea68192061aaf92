// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace tidewell::desktop {

class Workspace;

/// The line that is always there: what was saved, how far the work is, Stop, and Undo.
class Footer : public QWidget {
  Q_OBJECT

 public:
  /// `workspace` must outlive this.
  explicit Footer(Workspace& workspace, QWidget* parent = nullptr);

 private:
  void showState();
  void showProgress();
  QString sentence() const;

  Workspace& workspace_;
  QLabel* saved_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QPushButton *stop_ = nullptr, *undo_ = nullptr;
};

}  // namespace tidewell::desktop
