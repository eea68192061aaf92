// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QFrame>
#include <QStringList>

class QLabel;

namespace tidewell::desktop {

/// What went wrong, or was done, in one line that stays until it is read. Hidden while there is nothing.
class MessageBar : public QFrame {
  Q_OBJECT

 public:
  explicit MessageBar(QWidget* parent = nullptr);

  /// Takes the place of the message before. The lines of `details` are shown below it, the first ones only.
  void tell(const QString& message, const QStringList& details = {});

 private:
  QLabel* text_ = nullptr;
};

}  // namespace tidewell::desktop
