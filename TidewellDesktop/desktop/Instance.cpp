// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/desktop/Instance.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "TidewellDesktop/support/FileLists.h"

namespace tidewell::desktop {

namespace {

constexpr int patience = 5000;  // milliseconds
constexpr auto applicationInterface = "org.freedesktop.Application";

/// What lets a window of another process come to the front.
QVariantMap ownPlatformData() {
  QVariantMap data;
  const QByteArray wayland = qgetenv("XDG_ACTIVATION_TOKEN"), x11 = qgetenv("DESKTOP_STARTUP_ID");
  if (!wayland.isEmpty()) data.insert(QStringLiteral("activation-token"), QString::fromUtf8(wayland));
  if (!x11.isEmpty()) data.insert(QStringLiteral("desktop-startup-id"), QString::fromUtf8(x11));
  return data;
}

QByteArray tokenOf(const QVariantMap& platformData) {
  for (const char* key : {"activation-token", "desktop-startup-id"}) {
    QByteArray token = platformData.value(QLatin1String(key)).toString().toUtf8();
    if (!token.isEmpty()) return token;
  }
  return {};
}

}  // namespace

Instance::Instance(QDBusConnection connection, QObject* parent)
    : QObject(parent), connection_(std::move(connection)) {}

bool Instance::claim(const std::vector<URL>& files) {
  if (!connection_.isConnected()) return true;
  // The object first: calls may come as soon as the name is ours.
  connection_.registerObject(QLatin1String(path), this, QDBusConnection::ExportScriptableSlots);
  for (int attempt = 0; attempt < 3; attempt++) {
    if (connection_.registerService(QLatin1String(name))) return true;
    if (handOver(files)) {
      connection_.unregisterObject(QLatin1String(path));
      return false;
    }
  }
  return true;
}

bool Instance::handOver(const std::vector<URL>& files) {
  auto call = QDBusMessage::createMethodCall(
      QLatin1String(name), QLatin1String(path), QLatin1String(applicationInterface),
      files.empty() ? QStringLiteral("Activate") : QStringLiteral("Open"));
  // The other may be leaving just now, and must not be started anew by this.
  call.setAutoStartService(false);
  if (!files.empty()) call << urisOf(files);
  call << ownPlatformData();
  return connection_.call(call, QDBus::Block, patience).type() == QDBusMessage::ReplyMessage;
}

void Instance::Activate(const QVariantMap& platformData) {
  Q_EMIT wanted({}, tokenOf(platformData));
}

void Instance::Open(const QStringList& uris, const QVariantMap& platformData) {
  Q_EMIT wanted(filesOf(uris), tokenOf(platformData));
}

void Instance::ActivateAction(const QString& action, const QVariantList& /*parameter*/,
                              const QVariantMap& /*platformData*/) {
  Q_EMIT actionWanted(action);
}

}  // namespace tidewell::desktop
