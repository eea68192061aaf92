// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTest>
#include <functional>
#include <stdexcept>
#include <vector>

#include "support/TemporaryFolder.h"

namespace tidewell::test {

/// Serves events until the condition holds; false when that takes too long.
inline bool eventually(const std::function<bool()>& condition) {
  return QTest::qWaitFor(condition, 10'000);
}

/// A session bus of the test's own. Services that can be started are what lies in `services()`.
class PrivateBus {
 public:
  PrivateBus() {
    files::createDirectories(services());
    const URL config = folder_.write("bus.conf", R"(<!DOCTYPE busconfig PUBLIC
      "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
      "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd"><busconfig><type>session</type>
      <listen>unix:tmpdir=/tmp</listen><servicedir>)" +
                                                     services().path() + R"(</servicedir>
      <policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>
      </busconfig>)");
    daemon_.start("dbus-daemon", {"--config-file=" + QString::fromStdString(config.path()), "--nofork",
                                  "--nopidfile", "--print-address"});
    if (!daemon_.waitForStarted() || !daemon_.waitForReadyRead()) throw std::runtime_error("dbus-daemon");
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
  }
  ~PrivateBus() {
    for (const QString& name : names_) QDBusConnection::disconnectFromBus(name);
    end();
  }

  URL services() const { return folder_ / "services"; }
  /// Ends with the bus. Qt knows connections by name in the whole process, so each bus has names of its own.
  QDBusConnection connect(const QString& name) {
    names_ << address_ + name;
    return QDBusConnection::connectToBus(address_, names_.back());
  }
  void end() {
    daemon_.kill();
    daemon_.waitForFinished();
  }

 private:
  TemporaryFolder folder_;
  QProcess daemon_;
  QString address_;
  QStringList names_;
};

/// Stands in for the background service: answers everything, and keeps it.
class FakeService : public QDBusVirtualObject {
 public:
  FakeService(PrivateBus& bus, const QString& connection) : bus_(bus.connect(connection)) {
    bus_.registerVirtualObject("/com/vantor/tidewell/Background", this);
    bus_.registerService("com.vantor.tidewell.Background");
  }
  ~FakeService() override { QDBusConnection::disconnectFromBus(bus_.name()); }

  QDBusConnection& bus() { return bus_; }
  QString process() const { return bus_.baseService(); }
  std::vector<QDBusMessage> calls;
  bool holdsOpen = false;  ///< so that what comes next is answered first

 private:
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    calls.push_back(message);
    if (!holdsOpen || message.member() != "Open") connection.send(message.createReply());
    return true;
  }
  QString introspect(const QString&) const override { return {}; }

  QDBusConnection bus_;
};

}  // namespace tidewell::test
