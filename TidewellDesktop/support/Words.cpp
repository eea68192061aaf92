// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/support/Words.h"

#include <QFile>
#include <QGuiApplication>

#include "CompressionKit/platform/Text.h"

namespace tidewell::desktop {

QString words(std::string_view pattern, std::initializer_list<QString> values) {
  QString result = words(pattern);
  int number = 0;
  for (const QString& value : values) result.replace(QStringLiteral("{%1}").arg(++number), value);
  return result;
}

QString amountWords(std::string_view text) {
  constexpr QChar isolate(0x2066), end(0x2069);
  const QString amount = words(text);
  return QGuiApplication::isRightToLeft() && !amount.isEmpty() ? isolate + amount + end : amount;
}

Qt::Alignment startOfLine() {
  return Qt::AlignAbsolute | (QGuiApplication::isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft);
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
