// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <vector>

#include "CompressionKit/platform/URL.h"

namespace tidewell::desktop {

/// This program on the session bus, where there is at most one: what desktops and a second start ask of it.
class Instance : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

 public:
  static constexpr auto name = "com.vantor.tidewell.Desktop";
  static constexpr auto path = "/com/vantor/tidewell/Desktop";

  explicit Instance(QDBusConnection connection, QObject* parent = nullptr);

  /// True where this is the first, or can know of no other: without a bus, and where the other does not
  /// answer. Else the other has taken the files (or, without any, shown its window), and this has nothing to
  /// do.
  bool claim(const std::vector<URL>& files);

  // What the bus calls.
  Q_SLOT Q_SCRIPTABLE void Activate(const QVariantMap& platformData);
  Q_SLOT Q_SCRIPTABLE void Open(const QStringList& uris, const QVariantMap& platformData);
  Q_SLOT Q_SCRIPTABLE void ActivateAction(const QString& action, const QVariantList& parameter,
                                          const QVariantMap& platformData);

 Q_SIGNALS:
  /// The window is wanted; `files` may be empty. `token` lets it come to the front.
  void wanted(const std::vector<tidewell::URL>& files, const QByteArray& token);
  /// "undo" and "stop" are known to the window.
  void actionWanted(const QString& action);

 private:
  bool handOver(const std::vector<URL>& files);

  QDBusConnection connection_;
};

}  // namespace tidewell::desktop
