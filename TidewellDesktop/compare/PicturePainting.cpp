// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <QPaintEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "TidewellDesktop/compare/PictureView.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

/// What shows under transparency: the same greys in light and dark, for they are to be told from a picture.
QPixmap checkerboard(int square) {
  QPixmap pixmap(square * 2, square * 2);
  pixmap.fill(QColor(0xFF, 0xFF, 0xFF));
  QPainter painter(&pixmap);
  painter.fillRect(0, 0, square, square, QColor(0xD0, 0xD0, 0xD0));
  painter.fillRect(square, square, square, square, QColor(0xD0, 0xD0, 0xD0));
  return pixmap;
}

QString nameOf(Picture picture, int amplification) {
  switch (picture) {
    case Picture::original:
      return words(_("Original"));
    case Picture::result:
      return words(_("Result"));
    case Picture::difference:
      break;
  }
  return words(_("Difference × {1}"), {QString::number(amplification)});
}

/// The tiles' reduction: none is enlarged, and none has more than four pixels for each of the device.
int reductionFor(double scale) {
  int reduction = 1;
  while (scale * reduction * 2 <= 1) reduction *= 2;
  return reduction;
}

}  // namespace

QRect PictureView::target(const Pane& pane, const QRectF& area) const {
  // Both corners are rounded alike, so that neighbours meet without a seam.
  const auto corner = [&](QPointF point) {
    const QPointF there = viewport_.toWindow(point);
    return QPoint(static_cast<int>(std::floor(there.x() + 0.5)),
                  static_cast<int>(std::floor(there.y() + 0.5))) +
           pane.window.topLeft();
  };
  const QPoint first = corner(area.topLeft()), last = corner(area.bottomRight());
  return {first.x(), first.y(), std::max(1, last.x() - first.x()), std::max(1, last.y() - first.y())};
}

void PictureView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), palette().color(QPalette::Window));
  if (model_.state() != CompareModel::State::ready) return;
  painter.save();
  painter.scale(1 / devicePixelRatioF(), 1 / devicePixelRatioF());
  const auto all = panes();
  viewport_.setWindow(all.front().window.size());  // another screen has other pixels
  std::vector<TileKey> wanted;
  for (const Pane& pane : all) paintPane(painter, pane, wanted);
  painter.restore();
  for (std::size_t i = 0; i < all.size(); ++i) paintLabel(painter, all[i], i > 0);
  if (hasHandle()) paintHandle(painter);
  if (hasFocus()) {
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1));
    painter.setBrush(Qt::NoBrush);
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
  }
  model_.tiles().want(std::move(wanted));
}

void PictureView::paintPane(QPainter& painter, const Pane& pane, std::vector<TileKey>& wanted) const {
  const QImage& whole = model_.whole(pane.picture);
  if (whole.isNull()) return;
  painter.setClipRect(pane.clip);
  // A result of another size is laid over the original.
  const QRect all = target(pane, QRectF(QPointF(0, 0), model_.size(Picture::original)));
  if (whole.hasAlphaChannel()) {
    const int square = std::max(4, static_cast<int>(fontMetrics().height() * devicePixelRatioF() / 2));
    painter.drawTiledPixmap(all & pane.clip, checkerboard(square), (all & pane.clip).topLeft());
  }
  // Whoever looks this closely wants to see pixels.
  painter.setRenderHint(QPainter::SmoothPixmapTransform, viewport_.scale() < 3);
  if (model_.tiles().isOpen() && all.width() > whole.width()) return paintTiles(painter, pane, wanted);
  // Only what is seen, in whole pixels of the image: much enlarged, all of it is too large to be painted.
  const double across = static_cast<double>(model_.size(Picture::original).width()) / whole.width();
  const double down = static_cast<double>(model_.size(Picture::original).height()) / whole.height();
  const QRectF seen = viewport_.visible();
  const QRect source = QRectF(seen.x() / across, seen.y() / down, seen.width() / across, seen.height() / down)
                           .toAlignedRect() &
                       whole.rect();
  painter.drawImage(
      target(pane, {source.x() * across, source.y() * down, source.width() * across, source.height() * down}),
      whole, source);
}

void PictureView::paintTiles(QPainter& painter, const Pane& pane, std::vector<TileKey>& wanted) const {
  const QSizeF original = model_.size(Picture::original), own = model_.size(pane.picture);
  const double across = own.width() / original.width(), down = own.height() / original.height();
  const QImage& whole = model_.whole(pane.picture);
  const int reduction = reductionFor(viewport_.scale() / across);
  const double side = Tiles::side * reduction;
  // Of the picture's own pixels, what the clip shows.
  const QPointF first = viewport_.toPicture(pane.clip.topLeft() - pane.window.topLeft()),
                last = viewport_.toPicture(pane.clip.bottomRight() + QPoint(1, 1) - pane.window.topLeft());
  const QRectF seen = QRectF(first.x() * across, first.y() * down, (last.x() - first.x()) * across,
                             (last.y() - first.y()) * down) &
                      QRectF(QPointF(0, 0), own);
  if (seen.isEmpty()) return;
  const auto index = [side](double at) { return static_cast<int>(at / side); };
  for (int row = index(seen.top()); row * side < seen.bottom(); ++row) {
    for (int column = index(seen.left()); column * side < seen.right(); ++column) {
      const TileKey key{.picture = pane.picture, .reduction = reduction, .column = column, .row = row};
      const QRectF area = model_.tiles().area(key);
      const QRect to =
          target(pane, {area.x() / across, area.y() / down, area.width() / across, area.height() / down});
      wanted.push_back(key);
      if (const QImage* tile = model_.tiles().find(key)) {
        painter.drawImage(to, *tile);
      } else {
        const double reduced = whole.width() / own.width();
        painter.drawImage(
            QRectF(to), whole,
            {area.x() * reduced, area.y() * reduced, area.width() * reduced, area.height() * reduced});
      }
    }
  }
}

void PictureView::paintLabel(QPainter& painter, const Pane& pane, bool atEnd) const {
  const double ratio = devicePixelRatioF();
  const QRectF clip(pane.clip.x() / ratio, pane.clip.y() / ratio, pane.clip.width() / ratio,
                    pane.clip.height() / ratio);
  const QString name = nameOf(pane.picture, model_.amplification());
  const int gap = fontMetrics().height() / 2;
  const QSizeF size(fontMetrics().horizontalAdvance(name) + 2 * gap, fontMetrics().height() + gap);
  if (size.width() + 2 * gap > clip.width()) return;
  // At the outer corners, away from the handle.
  const bool atRight = atEnd != isRightToLeft();
  const QRectF box(QPointF(atRight ? clip.right() - gap - size.width() : clip.left() + gap, clip.top() + gap),
                   size);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  QColor background = palette().color(QPalette::ToolTipBase);
  background.setAlphaF(0.85F);
  painter.setBrush(background);
  painter.drawRoundedRect(box, gap / 2.0, gap / 2.0);
  painter.setPen(palette().color(QPalette::ToolTipText));
  painter.drawText(box, Qt::AlignCenter, name);
}

void PictureView::paintHandle(QPainter& painter) const {
  const double x = std::round(split_ * width());
  const double radius = fontMetrics().height() * 0.6;
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(palette().color(QPalette::Shadow), 3));
  painter.drawLine(QPointF(x, 0), QPointF(x, height()));
  painter.setPen(QPen(palette().color(QPalette::Base), 1));
  painter.drawLine(QPointF(x, 0), QPointF(x, height()));
  painter.setPen(QPen(palette().color(QPalette::Shadow), 1));
  painter.setBrush(palette().color(draggingHandle_ ? QPalette::Highlight : QPalette::Button));
  const QPointF middle(x, height() / 2.0);
  painter.drawEllipse(middle, radius, radius);
  painter.setPen(Qt::NoPen);
  painter.setBrush(palette().color(draggingHandle_ ? QPalette::HighlightedText : QPalette::ButtonText));
  for (const double way : {-1.0, 1.0}) {
    const double near = radius * 0.2 * way, far = radius * 0.65 * way, up = radius * 0.35;
    painter.drawPolygon(
        QPolygonF({middle + QPointF(near, -up), middle + QPointF(far, 0), middle + QPointF(near, up)}));
  }
}

}  // namespace tidewell::desktop
