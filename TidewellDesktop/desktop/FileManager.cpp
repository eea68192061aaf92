// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/desktop/FileManager.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QUrl>

#include "TidewellDesktop/support/FileLists.h"

namespace tidewell::desktop {

void showInFolder(const QDBusConnection& connection, const std::vector<URL>& files, QObject* receiver) {
  if (files.empty()) return;
  const auto openFolder = [folder = files.front().deletingLastPathComponent()] {
    QDesktopServices::openUrl(QUrl::fromEncoded(uriOf(folder).toLatin1()));
  };
  if (!connection.isConnected()) return openFolder();
  auto call = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
      QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
  call << urisOf(files) << QString();
  auto* reply = new QDBusPendingCallWatcher(connection.asyncCall(call), receiver);
  QObject::connect(reply, &QDBusPendingCallWatcher::finished, receiver, [reply, openFolder] {
    reply->deleteLater();
    if (reply->isError()) openFolder();
  });
}

}  // namespace tidewell::desktop
