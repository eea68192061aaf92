// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/desktop/FileChooser.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QFileDialog>
#include <QGuiApplication>
#include <QVariantMap>

#include "TidewellDesktop/support/FileLists.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

/// As the portal's filters are sent.
struct Pattern {
  uint kind = 0;  ///< 0: a shell pattern, 1: a MIME type
  QString text;
};
struct Filter {
  QString name;
  QList<Pattern> patterns;
};

static QDBusArgument& operator<<(QDBusArgument& argument, const Pattern& pattern) {
  argument.beginStructure();
  argument << pattern.kind << pattern.text;
  argument.endStructure();
  return argument;
}
static const QDBusArgument& operator>>(const QDBusArgument& argument, Pattern& pattern) {
  argument.beginStructure();
  argument >> pattern.kind >> pattern.text;
  argument.endStructure();
  return argument;
}
static QDBusArgument& operator<<(QDBusArgument& argument, const Filter& filter) {
  argument.beginStructure();
  argument << filter.name << filter.patterns;
  argument.endStructure();
  return argument;
}
static const QDBusArgument& operator>>(const QDBusArgument& argument, Filter& filter) {
  argument.beginStructure();
  argument >> filter.name >> filter.patterns;
  argument.endStructure();
  return argument;
}

}  // namespace tidewell::desktop

Q_DECLARE_METATYPE(tidewell::desktop::Pattern)
Q_DECLARE_METATYPE(tidewell::desktop::Filter)

namespace tidewell::desktop {

namespace {

constexpr auto portal = "org.freedesktop.portal.Desktop";
constexpr auto requestInterface = "org.freedesktop.portal.Request";
constexpr const char* kinds[] = {"image/jpeg", "image/png", "image/gif", "image/heif", "image/heic"};

QString titleFor(FileChooser::Kind kind) {
  return kind == FileChooser::Kind::folder ? words(_("Choose a folder")) : words(_("Choose pictures"));
}

QVariantMap portalOptions(FileChooser::Kind kind) {
  QVariantMap options{{QStringLiteral("multiple"), true}, {QStringLiteral("modal"), true}};
  if (kind == FileChooser::Kind::folder) {
    options.insert(QStringLiteral("directory"), true);
    return options;
  }
  Filter filter{words(_("Pictures")), {}};
  for (const char* mimeType : kinds) filter.patterns.append({1, QLatin1String(mimeType)});
  options.insert(QStringLiteral("filters"), QVariant::fromValue(QList<Filter>{filter}));
  return options;
}

QString parentHandle(const QWidget& window) {
  return QGuiApplication::platformName() == QLatin1String("xcb")
             ? QStringLiteral("x11:%1").arg(window.winId(), 0, 16)
             : QString();
}

}  // namespace

FileChooser::FileChooser(QDBusConnection connection, QWidget& window)
    : QObject(&window), connection_(std::move(connection)), window_(window) {
  qDBusRegisterMetaType<Pattern>();
  qDBusRegisterMetaType<QList<Pattern>>();
  qDBusRegisterMetaType<Filter>();
  qDBusRegisterMetaType<QList<Filter>>();
  auto* life = new QDBusServiceWatcher(QLatin1String(portal), connection_,
                                       QDBusServiceWatcher::WatchForUnregistration, this);
  connect(life, &QDBusServiceWatcher::serviceUnregistered, this, &FileChooser::receivePortalGone);
}

void FileChooser::open(Kind kind) {
  if (!connection_.isConnected()) stopListening();
  if (isAsking_ || !request_.isEmpty() || dialog_) return;
  kind_ = kind;
  if (!connection_.isConnected()) return openOwn(kind);
  isAsking_ = true;
  auto call = QDBusMessage::createMethodCall(
      QLatin1String(portal), QStringLiteral("/org/freedesktop/portal/desktop"),
      QStringLiteral("org.freedesktop.portal.FileChooser"), QStringLiteral("OpenFile"));
  call << parentHandle(window_) << titleFor(kind) << portalOptions(kind);
  auto* reply = new QDBusPendingCallWatcher(connection_.asyncCall(call), this);
  connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply, kind] {
    reply->deleteLater();
    isAsking_ = false;
    const QDBusPendingReply<QDBusObjectPath> answer = *reply;
    if (answer.isValid()) {
      listenTo(answer.value().path());
    } else {
      openOwn(kind);
    }
  });
}

void FileChooser::listenTo(const QString& request) {
  request_ = request;
  connection_.connect(QLatin1String(portal), request_, QLatin1String(requestInterface),
                      QStringLiteral("Response"), this, SLOT(receiveResponse(QDBusMessage)));
}

void FileChooser::stopListening() {
  if (request_.isEmpty()) return;
  connection_.disconnect(QLatin1String(portal), request_, QLatin1String(requestInterface),
                         QStringLiteral("Response"), this, SLOT(receiveResponse(QDBusMessage)));
  request_.clear();
}

/// Its dialog went with it.
void FileChooser::receivePortalGone() {
  if (request_.isEmpty()) return;
  stopListening();
  openOwn(kind_);
}

void FileChooser::receiveResponse(const QDBusMessage& message) {
  stopListening();
  const auto arguments = message.arguments();
  if (arguments.size() < 2 || arguments[0].toUInt() != 0) return;  // the user thought better of it
  const auto results = qdbus_cast<QVariantMap>(arguments[1]);
  const auto files = filesOf(results.value(QStringLiteral("uris")).toStringList());
  if (!files.empty()) Q_EMIT chosen(files);
}

void FileChooser::openOwn(Kind kind) {
  auto* dialog = new QFileDialog(&window_, titleFor(kind));
  dialog_ = dialog;
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  if (kind == Kind::folder) {
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
  } else {
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilter(words(_("Pictures")) + QStringLiteral(" (*.jpg *.jpeg *.png *.gif *.heic *.heif)"));
  }
  connect(dialog, &QFileDialog::filesSelected, this, [this](const QStringList& names) {
    std::vector<URL> files;
    for (const QString& name : names) files.push_back(fileURL(name));
    Q_EMIT chosen(files);
  });
  dialog->open();
}

}  // namespace tidewell::desktop
