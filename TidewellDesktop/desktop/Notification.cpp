// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/desktop/Notification.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>
#include <utility>

#include "TidewellDesktop/desktop/Instance.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

namespace {

QString server() {
  return QStringLiteral("org.freedesktop.Notifications");
}
QString serverPath() {
  return QStringLiteral("/org/freedesktop/Notifications");
}

}  // namespace

Notification::Notification(QDBusConnection connection, QObject* parent)
    : QObject(parent), connection_(std::move(connection)) {
  connection_.connect(server(), serverPath(), server(), QStringLiteral("ActionInvoked"), this,
                      SLOT(receiveAction(QDBusMessage)));
  connection_.connect(server(), serverPath(), server(), QStringLiteral("NotificationClosed"), this,
                      SLOT(receiveClosed(QDBusMessage)));
}

void Notification::show(const QString& summary, const QString& body, bool canUndo, int run) {
  QStringList actions = {QStringLiteral("default"), words(_("Show"))};
  if (canUndo) actions << QStringLiteral("undo") << words(_("Undo"));
  const QString id = QLatin1String(Instance::name);
  auto call = QDBusMessage::createMethodCall(server(), serverPath(), server(), QStringLiteral("Notify"));
  // Servers may take the body for markup.
  call << QStringLiteral("Tidewell") << id_ << id << summary << body.toHtmlEscaped() << actions
       << QVariantMap{{QStringLiteral("desktop-entry"), id}} << -1;
  auto* reply = new QDBusPendingCallWatcher(connection_.asyncCall(call), this);
  connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply, run, number = ++call_] {
    reply->deleteLater();
    const QDBusPendingReply<uint> answer = *reply;
    if (answer.isValid()) {
      take(answer.value(), run, number);
    } else if (number == call_) {
      Q_EMIT closed();
    }
  });
}

void Notification::take(uint id, int run, int call) {
  if (call != call_) {
    if (id != id_) close(id);
    return;
  }
  id_ = id;
  run_ = run;
}

void Notification::close() {
  ++call_;
  if (id_ != 0) close(std::exchange(id_, 0));
}

void Notification::close(uint id) {
  auto call =
      QDBusMessage::createMethodCall(server(), serverPath(), server(), QStringLiteral("CloseNotification"));
  connection_.send(call << id);
}

void Notification::receiveAction(const QDBusMessage& message) {
  const auto arguments = message.arguments();
  if (arguments.size() < 2 || id_ == 0 || arguments[0].toUInt() != id_) return;
  if (arguments[1].toString() == QLatin1String("undo")) {
    Q_EMIT undoRequested(run_);
  } else {
    Q_EMIT activated();
  }
}

void Notification::receiveClosed(const QDBusMessage& message) {
  const auto arguments = message.arguments();
  if (arguments.isEmpty() || id_ == 0 || arguments[0].toUInt() != id_) return;
  id_ = 0;
  Q_EMIT closed();
}

}  // namespace tidewell::desktop
