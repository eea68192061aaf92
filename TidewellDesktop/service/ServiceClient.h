// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <cstddef>
#include <memory>
#include <vector>

#include "CompressionKit/platform/URL.h"

class QDBusError;
class QDBusServiceWatcher;

namespace tidewell::desktop {

/// How the service is asked to compress.
struct OpenOptions {
  bool keepMetadata = true;
  bool keepTimes = true;
};

/// The background service on the session bus, which the first request starts. Nothing here blocks: answers
/// come as signals.
class ServiceClient : public QObject {
  Q_OBJECT

 public:
  enum class State {
    unknown,       ///< asked, and not answered yet
    available,     ///< runs, or can be started
    noBus,         ///< there is no session bus, or it has gone
    notInstalled,  ///< the bus knows no such service
  };

  explicit ServiceClient(QDBusConnection connection, QObject* parent = nullptr);

  State state() const { return state_; }
  /// Asks the bus anew; `stateChanged` tells of another answer. The bus says by itself when services are
  /// installed.
  void lookAgain();

  /// One batch of the service for these files, unless their names are too long for one message, as some
  /// 300,000 may be. `opened` or `openFailed` follows.
  void open(const std::vector<URL>& files, const OpenOptions& options = {});
  /// Ends the running batches, and those that the service was asked for and has not taken yet; what was done
  /// by then stays.
  void stop();
  /// Tells other programs that this one changed the undo store.
  void announceUndoDidChange();

 Q_SIGNALS:
  void stateChanged();
  void historyDidChange();
  /// Another program changed the undo store.
  void undoDidChange();
  /// The process that has this name on the bus has taken the files.
  void opened(const QString& process);
  /// The service did not take the files.
  void openFailed(const QString& words);
  /// The same, and also where it could not be told to stop.
  void requestFailed(const QString& words);
  /// No service runs that could be told to stop.
  void nothingToStop();
  /// The service has been told to stop what it had taken.
  void stopped();
  /// A process that had taken files has ended: rightly, where they are done.
  void serviceVanished(const QString& process);

 private:
  Q_SLOT void receiveUndoDidChange(const QDBusMessage& message);
  Q_SLOT void receiveDisconnected();
  Q_SLOT void receiveServicesChanged();
  void setState(State state);
  void watchName();
  void watchProcess(const QString& process);
  void askForActivatable();
  void receiveVanished(const QString& process);
  void openFrom(std::shared_ptr<const std::vector<URL>> files, std::size_t first, const OpenOptions& options);
  struct StopAnswers;
  void sendStop(const QString& receiver, bool mayStart, std::shared_ptr<StopAnswers> answers);
  void fail(const QDBusError& error);

  QDBusConnection connection_;
  State state_ = State::unknown;
  QDBusServiceWatcher* processes_ = nullptr;  ///< that have taken files
  int openRequests_ = 0;                      ///< that were not answered yet
  int opens_ = 0;                             ///< so many were asked for
  int opensStopped_ = 0;                      ///< the first so many are to stop
};

}  // namespace tidewell::desktop
