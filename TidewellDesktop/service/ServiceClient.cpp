// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/service/ServiceClient.h"

#include <QByteArray>
#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QStringList>
#include <QVariantMap>
#include <utility>

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

const QString serviceName = QStringLiteral("com.vantor.tidewell.Background");
const QString servicePath = QStringLiteral("/com/vantor/tidewell/Background");
const QString applicationInterface = QStringLiteral("org.freedesktop.Application");
const QString signalPath = QStringLiteral("/com/vantor/tidewell");
const QString signalInterface = QStringLiteral("com.vantor.tidewell");
const QString busName = QStringLiteral("org.freedesktop.DBus");
const QString busPath = QStringLiteral("/org/freedesktop/DBus");

/// The bus gives a service two minutes to start.
constexpr int requestMilliseconds = 150'000;
constexpr int questionMilliseconds = 10'000;
/// Arrays of a message end at 64 MiB.
constexpr qsizetype maximumRequestBytes = qsizetype{32} << 20;

/// Paths are bytes, and a message holds UTF-8.
QString fileURLText(const URL& file) {
  const QByteArray path = QByteArray::fromStdString(file.path());
  return QStringLiteral("file://") + QString::fromLatin1(path.toPercentEncoding("/"));
}

QDBusMessage callToBus(const QString& method) {
  return QDBusMessage::createMethodCall(busName, busPath, busName, method);
}

bool meansNotInstalled(const QDBusError& error) {
  return error.type() == QDBusError::ServiceUnknown ||
         error.name() == QStringLiteral("org.freedesktop.DBus.Error.Spawn.ServiceNotFound");
}

bool meansNotRunning(const QDBusError& error) {
  return meansNotInstalled(error) ||
         error.name() == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner");
}

bool meansNoBus(const QDBusError& error) {
  return error.type() == QDBusError::Disconnected || error.type() == QDBusError::NoServer;
}

QString described(const QDBusError& error) {
  if (meansNoBus(error)) return words(_("The session bus has gone."));
  if (meansNotInstalled(error)) return words(_("The background service is not installed."));
  if (error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout ||
      error.type() == QDBusError::TimedOut) {
    return words(_("The background service does not answer."));
  }
  return words(_("The background service could not be started: {1}"), {error.message()});
}

/// Calls `done` with the reply, unless `receiver` has gone by then.
template <typename Done>
void whenAnswered(const QDBusPendingCall& call, QObject* receiver, Done done) {
  auto* watcher = new QDBusPendingCallWatcher(call, receiver);
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, receiver,
                   [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     done(finished->reply());
                   });
}

}  // namespace

ServiceClient::ServiceClient(QDBusConnection connection, QObject* parent)
    : QObject(parent), connection_(std::move(connection)) {
  if (!connection_.isConnected()) {
    state_ = State::noBus;
    return;
  }
  connection_.connect({}, signalPath, signalInterface, QStringLiteral("historyDidChange"), this,
                      SIGNAL(historyDidChange()));
  connection_.connect({}, signalPath, signalInterface, QStringLiteral("undoDidChange"), this,
                      SLOT(receiveUndoDidChange(QDBusMessage)));
  connection_.connect(busName, busPath, busName, QStringLiteral("ActivatableServicesChanged"), this,
                      SLOT(receiveServicesChanged()));
  connection_.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"),
                      QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                      SLOT(receiveDisconnected()));
  watchName();
  lookAgain();
}

void ServiceClient::watchName() {
  auto* name =
      new QDBusServiceWatcher(serviceName, connection_, QDBusServiceWatcher::WatchForOwnerChange, this);
  connect(name, &QDBusServiceWatcher::serviceOwnerChanged, this, &ServiceClient::lookAgain);
  processes_ = new QDBusServiceWatcher(this);
  processes_->setConnection(connection_);
  processes_->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
  connect(processes_, &QDBusServiceWatcher::serviceUnregistered, this, &ServiceClient::receiveVanished);
}

/// The service gives its name up before it finishes a last batch. So the end of its connection counts.
void ServiceClient::watchProcess(const QString& process) {
  if (processes_->watchedServices().contains(process)) return;
  processes_->addWatchedService(process);
  QDBusMessage question = callToBus(QStringLiteral("NameHasOwner"));  // it may have ended meanwhile
  question << process;
  whenAnswered(connection_.asyncCall(question, questionMilliseconds), this,
               [this, process](const QDBusMessage& reply) {
                 const QDBusReply<bool> there(reply);
                 if (there.isValid() && !there.value()) receiveVanished(process);
               });
}

void ServiceClient::receiveVanished(const QString& process) {
  if (processes_->removeWatchedService(process)) Q_EMIT serviceVanished(process);
}

void ServiceClient::lookAgain() {
  if (!connection_.isConnected()) return setState(State::noBus);
  QDBusMessage question = callToBus(QStringLiteral("NameHasOwner"));
  question << serviceName;
  whenAnswered(connection_.asyncCall(question, questionMilliseconds), this,
               [this](const QDBusMessage& reply) {
                 const QDBusReply<bool> runs(reply);
                 if (!runs.isValid()) return setState(State::noBus);
                 runs.value() ? setState(State::available) : askForActivatable();
               });
}

void ServiceClient::askForActivatable() {
  whenAnswered(connection_.asyncCall(callToBus(QStringLiteral("ListActivatableNames")), questionMilliseconds),
               this, [this](const QDBusMessage& reply) {
                 const QDBusReply<QStringList> names(reply);
                 if (!names.isValid()) return setState(State::noBus);
                 setState(names.value().contains(serviceName) ? State::available : State::notInstalled);
               });
}

void ServiceClient::open(const std::vector<URL>& files, const OpenOptions& options) {
  ++opens_;
  openFrom(std::make_shared<const std::vector<URL>>(files), 0, options);
}

void ServiceClient::openFrom(std::shared_ptr<const std::vector<URL>> files, std::size_t first,
                             const OpenOptions& options) {
  QStringList texts;
  std::size_t next = first;
  for (qsizetype bytes = 0; next < files->size() && bytes < maximumRequestBytes; ++next) {
    texts.append(fileURLText((*files)[next]));
    bytes += texts.back().size() + 8;
  }
  QDBusMessage request =
      QDBusMessage::createMethodCall(serviceName, servicePath, applicationInterface, QStringLiteral("Open"));
  request << texts
          << QVariantMap{{QStringLiteral("keep-metadata"), options.keepMetadata},
                         {QStringLiteral("keep-times"), options.keepTimes}};
  ++openRequests_;
  whenAnswered(connection_.asyncCall(request, requestMilliseconds), this,
               [this, files = std::move(files), next, options, number = opens_](const QDBusMessage& reply) {
                 --openRequests_;
                 if (reply.type() == QDBusMessage::ErrorMessage) {
                   Q_EMIT openFailed(described(QDBusError(reply)));
                   return fail(QDBusError(reply));
                 }
                 watchProcess(reply.service());
                 const bool isStopped = number <= opensStopped_;
                 // It may have lost the name between the two. What was asked for since is not to stop.
                 if (isStopped && opens_ == opensStopped_)
                   sendStop(reply.service(), false, std::make_shared<StopAnswers>());
                 if (!isStopped && next < files->size()) return openFrom(files, next, options);
                 Q_EMIT opened(reply.service());
               });
}

struct ServiceClient::StopAnswers {
  int missing = 0;
  bool wasHeard = false;
};

void ServiceClient::stop() {
  opensStopped_ = opens_;
  const auto answers = std::make_shared<StopAnswers>();
  // A last batch runs in a process that gave the name up.
  for (const QString& process : processes_ ? processes_->watchedServices() : QStringList())
    sendStop(process, false, answers);
  // One that is being started gets it after the files; else one that does not run has nothing to stop.
  sendStop(serviceName, openRequests_ > 0, answers);
}

void ServiceClient::sendStop(const QString& receiver, bool mayStart, std::shared_ptr<StopAnswers> answers) {
  QDBusMessage request = QDBusMessage::createMethodCall(receiver, servicePath, applicationInterface,
                                                        QStringLiteral("ActivateAction"));
  request.setAutoStartService(mayStart);
  request << QStringLiteral("stop") << QVariantList() << QVariantMap();
  ++answers->missing;
  whenAnswered(connection_.asyncCall(request, mayStart ? requestMilliseconds : questionMilliseconds), this,
               [this, receiver, mayStart, answers = std::move(answers)](const QDBusMessage& reply) {
                 const QDBusError error(reply);
                 answers->wasHeard = answers->wasHeard || reply.type() != QDBusMessage::ErrorMessage;
                 // One that was followed is told of when it ends, and one that could not start already was.
                 const bool isTold = receiver != serviceName || mayStart;
                 if (error.isValid() && !isTold && !meansNotRunning(error)) fail(error);
                 if (--answers->missing > 0) return;
                 if (answers->wasHeard) {
                   Q_EMIT stopped();
                 } else {
                   Q_EMIT nothingToStop();
                 }
               });
}

void ServiceClient::announceUndoDidChange() {
  connection_.send(QDBusMessage::createSignal(signalPath, signalInterface, QStringLiteral("undoDidChange")));
}

void ServiceClient::fail(const QDBusError& error) {
  if (meansNoBus(error)) setState(State::noBus);
  if (meansNotInstalled(error)) lookAgain();
  Q_EMIT requestFailed(described(error));
}

void ServiceClient::receiveUndoDidChange(const QDBusMessage& message) {
  if (message.service() != connection_.baseService()) Q_EMIT undoDidChange();
}

void ServiceClient::receiveServicesChanged() {
  lookAgain();
}

void ServiceClient::receiveDisconnected() {
  setState(State::noBus);
  // Nothing will be heard of them again.
  for (const QString& process : processes_->watchedServices()) receiveVanished(process);
}

void ServiceClient::setState(State state) {
  if (std::exchange(state_, state) != state) Q_EMIT stateChanged();
}

}  // namespace tidewell::desktop
