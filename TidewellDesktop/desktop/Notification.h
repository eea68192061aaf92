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

  /// Takes the place of the last one. `body` is plain text; `run` comes back with `undoRequested`.
  void show(const QString& summary, const QString& body, bool canUndo, int run = 0);
  /// Also one that the desktop was asked for and has not shown yet.
  void close();

 Q_SIGNALS:
  void undoRequested(int run);
  void activated();
  /// Not by `close`. Also when none could be shown.
  void closed();

 private:
  Q_SLOT void receiveAction(const QDBusMessage& message);
  Q_SLOT void receiveClosed(const QDBusMessage& message);
  void take(uint id, int run, int call);
  void close(uint id);

  QDBusConnection connection_;
  uint id_ = 0;
  int run_ = 0;   ///< of what is shown
  int call_ = 0;  ///< the answers of earlier ones are no longer wanted
};

}  // namespace tidewell::desktop
