// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/MessageBar.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include "TidewellDesktop/support/Labels.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

MessageBar::MessageBar(QWidget* parent) : QFrame(parent) {
  setFrameShape(QFrame::StyledPanel);
  setBackgroundRole(QPalette::ToolTipBase);
  setForegroundRole(QPalette::ToolTipText);
  setAutoFillBackground(true);
  text_ = new QLabel;
  text_->setWordWrap(true);
  text_->setAlignment(startOfLine() | Qt::AlignVCenter);
  text_->setTextFormat(Qt::PlainText);
  allowLongWords(*text_);
  text_->setForegroundRole(QPalette::ToolTipText);
  text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto* close = new QPushButton(words(_("&Dismiss")));
  close->setFlat(true);
  connect(close, &QPushButton::clicked, this, &QWidget::hide);
  auto* layout = new QHBoxLayout(this);
  layout->addWidget(text_, 1);
  layout->addWidget(close);
  hide();
}

void MessageBar::tell(const QString& message, const QStringList& details) {
  constexpr int shown = 3;
  QStringList lines{message};
  lines += details.mid(0, shown);
  if (details.size() > shown) lines += words(counted("and {1} more", "and {1} more", details.size() - shown));
  lines.removeAll(QString());
  text_->setText(lines.join(QLatin1Char('\n')));
  text_->setToolTip(plainTip(text_->text()));
  setAccessibleName(text_->text());
  setVisible(!lines.isEmpty());
  if (isVisible()) {
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
  }
}

}  // namespace tidewell::desktop
