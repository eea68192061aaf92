// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <vector>

#include "CompressionKit/platform/URL.h"

class QDBusMessage;

namespace tidewell::desktop {

/// Lets the user choose pictures or folders: by the desktop's portal, whose dialog is the one that people
/// know from elsewhere, or else by one of our own. One at a time.
class FileChooser : public QObject {
  Q_OBJECT

 public:
  enum class Kind { pictures, folder };

  /// The dialogs belong to `window`.
  FileChooser(QDBusConnection connection, QWidget& window);

  void open(Kind kind);

 Q_SIGNALS:
  void chosen(const std::vector<tidewell::URL>& files);

 private:
  Q_SLOT void receiveResponse(const QDBusMessage& message);
  void openOwn(Kind kind);
  void listenTo(const QString& request);
  void stopListening();
  void receivePortalGone();

  QDBusConnection connection_;
  QWidget& window_;
  Kind kind_ = Kind::pictures;  ///< that was asked for last
  bool isAsking_ = false;       ///< the portal has not answered yet
  QString request_;             ///< of the portal, while its dialog is open
  QPointer<QWidget> dialog_;
};

}  // namespace tidewell::desktop
