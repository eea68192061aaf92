// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QFrame>

class QCheckBox;
class QLabel;
class QPushButton;

namespace tidewell::desktop {

class Workspace;

/// Asks whether what waits in the list shall be compressed, and whether to ask again. Says too what was
/// passed over. Hidden while there is neither.
class AskBar : public QFrame {
  Q_OBJECT

 public:
  /// `workspace` must outlive this.
  explicit AskBar(Workspace& workspace, QWidget* parent = nullptr);

  /// Where the keyboard should be when files were opened.
  void focusCompress();
  /// What waits, and with the tick from now on at once.
  void compress();

 private:
  void compressAgain();
  void showState();

  Workspace& workspace_;
  QLabel* text_ = nullptr;
  QCheckBox* atOnce_ = nullptr;
  QPushButton *compress_ = nullptr, *again_ = nullptr;
};

}  // namespace tidewell::desktop
