// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/support/Words.h"

#include <QFile>

#include "CompressionKit/platform/Text.h"

namespace tidewell::desktop {

QString words(std::string_view pattern, std::initializer_list<QString> values) {
  QString result = words(pattern);
  int number = 0;
  for (const QString& value : values) result.replace(QStringLiteral("{%1}").arg(++number), value);
  return result;
}

QString shownPath(std::string_view path) {
  return words(printable(path));
}

QString plainTip(const QString& text) {
  QString marked = text.toHtmlEscaped();
  marked.replace(QLatin1Char('\n'), QStringLiteral("<br>"));
  return QStringLiteral("<qt>%1</qt>").arg(marked);
}

URL fileURL(const QString& path) {
  return URL::file(QFile::encodeName(path).toStdString());
}

}  // namespace tidewell::desktop
