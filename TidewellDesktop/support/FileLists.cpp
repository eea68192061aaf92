// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/support/FileLists.h"

#include <QByteArray>
#include <QMimeData>

namespace tidewell::desktop {

namespace {

constexpr auto uriList = "text/uri-list";

QStringList linesOf(const QByteArray& text) {
  QStringList lines;
  for (const QByteArray& line : text.split('\n')) {
    const QByteArray uri = line.trimmed();
    if (!uri.isEmpty() && !uri.startsWith('#')) lines.append(QString::fromUtf8(uri));
  }
  return lines;
}

/// Paths that were copied as text; nothing where a line is something else.
std::vector<URL> filesOfText(const QString& text) {
  std::vector<URL> files;
  for (const QString& line : text.split(QLatin1Char('\n'))) {
    const QString trimmed = line.trimmed();
    if (trimmed.isEmpty()) continue;
    if (trimmed.startsWith(QLatin1Char('/'))) {
      files.push_back(URL::file(trimmed.toStdString()));
    } else if (const auto url = URL::parse(trimmed.toStdString()); url && url->isFileURL()) {
      files.push_back(*url);
    } else {
      return {};
    }
  }
  return files;
}

}  // namespace

QString uriOf(const URL& file) {
  return QStringLiteral("file://") +
         QString::fromLatin1(QByteArray::fromStdString(file.path()).toPercentEncoding("/"));
}

QStringList urisOf(const std::vector<URL>& files) {
  QStringList uris;
  for (const URL& file : files) uris.append(uriOf(file));
  return uris;
}

std::vector<URL> filesOf(const QStringList& uris) {
  std::vector<URL> files;
  for (const QString& uri : uris) {
    const auto url = URL::parse(uri.toStdString());
    if (url && url->isFileURL()) files.push_back(*url);
  }
  return files;
}

std::vector<URL> filesOf(const QMimeData& data) {
  if (data.hasFormat(QLatin1String(uriList))) return filesOf(linesOf(data.data(QLatin1String(uriList))));
  return data.hasText() ? filesOfText(data.text()) : std::vector<URL>{};
}

bool mayNameFiles(const QMimeData& data) {
  return data.hasFormat(QLatin1String(uriList)) || (data.hasText() && !filesOfText(data.text()).empty());
}

}  // namespace tidewell::desktop
