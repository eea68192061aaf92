// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/desktop/Notification.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

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

void Notification::show(const QString& summary, const QString& body, bool canUndo) {
  QStringList actions = {QStringLiteral("default"), words(_("Show"))};
  if (canUndo) actions << QStringLiteral("undo") << words(_("Undo"));
  const QString id = QLatin1String(Instance::name);
  auto call = QDBusMessage::createMethodCall(server(), serverPath(), server(), QStringLiteral("Notify"));
  // Servers may take the body for markup.
  call << QStringLiteral("Tidewell") << id_ << id << summary << body.toHtmlEscaped() << actions
       << QVariantMap{{QStringLiteral("desktop-entry"), id}} << -1;
  auto* reply = new QDBusPendingCallWatcher(connection_.asyncCall(call), this);
  connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply] {
    reply->deleteLater();
    const QDBusPendingReply<uint> answer = *reply;
    if (answer.isValid()) {
      id_ = answer.value();
    } else {
      Q_EMIT closed();
    }
  });
}

void Notification::close() {
  if (id_ == 0) return;
  auto call =
      QDBusMessage::createMethodCall(server(), serverPath(), server(), QStringLiteral("CloseNotification"));
  connection_.send(call << id_);
  id_ = 0;
}

void Notification::receiveAction(const QDBusMessage& message) {
  const auto arguments = message.arguments();
  if (arguments.size() < 2 || id_ == 0 || arguments[0].toUInt() != id_) return;
  if (arguments[1].toString() == QLatin1String("undo")) {
    Q_EMIT undoRequested();
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
