// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QWidget>

class QPushButton;

namespace tidewell::desktop {

/// What the window shows before there is any picture: what to do, and that nothing is lost.
class EmptyPage : public QWidget {
  Q_OBJECT

 public:
  explicit EmptyPage(QWidget* parent = nullptr);

  /// Files are held over the window just now.
  void setDropping(bool isDropping);

 Q_SIGNALS:
  void chooseRequested();
  void chooseFolderRequested();

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  bool isDropping_ = false;
  QPushButton* choose_ = nullptr;
};

}  // namespace tidewell::desktop
