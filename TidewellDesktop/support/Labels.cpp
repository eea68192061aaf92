// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/support/Labels.h"

#include <QPainter>
#include <QStyle>

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

ElidedLabel::ElidedLabel(const QString& text, QWidget* parent) : QLabel(text, parent) {
  setTextFormat(Qt::PlainText);
  setToolTip(plainTip(text));
}

QSize ElidedLabel::minimumSizeHint() const {
  return {fontMetrics().averageCharWidth() * 8, QLabel::minimumSizeHint().height()};
}

void ElidedLabel::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QString shown = fontMetrics().elidedText(amountWords(text().toStdString()), Qt::ElideMiddle, width());
  style()->drawItemText(&painter, rect(), static_cast<int>((startOfLine() | Qt::AlignVCenter).toInt()),
                        palette(), isEnabled(), shown, foregroundRole());
}

void allowLongWords(QLabel& label) {
  label.setMinimumWidth(1);
}

}  // namespace tidewell::desktop
