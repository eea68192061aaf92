// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

class QDBusMessage;

namespace tidewell::desktop {

/// One notification of the desktop, with Undo in it. Where the desktop shows none, nothing happens but
/// `closed`.
class Notification : public QObject {
  Q_OBJECT

 public:
  explicit Notification(QDBusConnection connection, QObject* parent = nullptr);

  /// Takes the place of the last one. `body` is plain text.
  void show(const QString& summary, const QString& body, bool canUndo);
  void close();

 Q_SIGNALS:
  void undoRequested();
  void activated();
  /// Also when none could be shown.
  void closed();

 private Q_SLOTS:
  void receiveAction(const QDBusMessage& message);
  void receiveClosed(const QDBusMessage& message);

 private:
  QDBusConnection connection_;
  uint id_ = 0;
};

}  // namespace tidewell::desktop
