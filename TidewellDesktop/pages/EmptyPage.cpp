// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/pages/EmptyPage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

namespace {

QLabel* line(const QString& text, double size) {
  auto* label = new QLabel(text);
  label->setAlignment(Qt::AlignCenter);
  label->setWordWrap(true);
  QFont font = label->font();
  font.setPointSizeF(font.pointSizeF() * size);
  label->setFont(font);
  return label;
}

}  // namespace

EmptyPage::EmptyPage(QWidget* parent) : QWidget(parent) {
  choose_ = new QPushButton(words(_("&Choose pictures…")));
  choose_->setDefault(true);
  auto* folder = new QPushButton(words(_("Choose a f&older…")));
  connect(choose_, &QPushButton::clicked, this, &EmptyPage::chooseRequested);
  connect(folder, &QPushButton::clicked, this, &EmptyPage::chooseFolderRequested);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(choose_);
  buttons->addWidget(folder);
  buttons->addStretch();

  auto* layout = new QVBoxLayout(this);
  const int space = fontMetrics().height();
  layout->setContentsMargins(3 * space, 3 * space, 3 * space, 3 * space);
  layout->setSpacing(space);
  layout->addStretch();
  layout->addWidget(line(words(_("Drop images or folders here")), 1.7));
  layout->addWidget(line(
      words(_("JPEG, PNG and GIF become smaller where they lie; a HEIC photo gets a PNG beside it.")), 1));
  layout->addLayout(buttons);
  layout->addWidget(
      line(words(_("The originals are kept for four hours, and every step can be undone.")), 1));
  layout->addStretch();
  setFocusProxy(choose_);
}

void EmptyPage::setDropping(bool isDropping) {
  isDropping_ = isDropping;
  update();
}

void EmptyPage::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const qreal space = fontMetrics().height();
  QColor color = palette().color(isDropping_ ? QPalette::Highlight : QPalette::WindowText);
  if (!isDropping_) color.setAlphaF(0.4F);
  painter.setPen(QPen(color, space / 8, Qt::DashLine));
  if (isDropping_) {
    color.setAlphaF(0.12F);
    painter.setBrush(color);
  }
  const QRectF frame = QRectF(rect()).adjusted(space, space, -space, -space);
  painter.drawRoundedRect(frame, space, space);
}

}  // namespace tidewell::desktop
