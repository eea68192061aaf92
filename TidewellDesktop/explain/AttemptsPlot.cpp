// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/explain/AttemptsPlot.h"

#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>
#include <cmath>

#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/explain/AttemptsModel.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

/// A step of 1, 2 or 5 times a power of ten that divides `span` into some five parts.
double roundStep(double span) {
  constexpr double parts = 5;
  const double power = std::pow(10.0, std::floor(std::log10(span / parts)));
  const double times = span / parts / power;
  return power * (times <= 1 ? 1 : times <= 2 ? 2 : times <= 5 ? 5 : 10);
}

QString tickText(double value, double step) {
  return QString::number(value, 'f', step < 1 ? 1 : 0);
}

}  // namespace

QPointF AttemptsPlot::Frame::place(double score, double bytes) const {
  return {area.left() + area.width() * (score - lowest) / (highest - lowest),
          area.bottom() - area.height() * bytes / most};
}

AttemptsPlot::AttemptsPlot(const AttemptsModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setAccessibleName(words(_("Plot of the attempts: bytes over score")));
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
  connect(&model_, &AttemptsModel::modelReset, this, &AttemptsPlot::collect);
  collect();
}

QSize AttemptsPlot::sizeHint() const {
  return {fontMetrics().averageCharWidth() * 60, fontMetrics().height() * 16};
}

QSize AttemptsPlot::minimumSizeHint() const {
  return {fontMetrics().averageCharWidth() * 30, fontMetrics().height() * 8};
}

void AttemptsPlot::setCurrent(int row) {
  current_ = row;
  update();
}

void AttemptsPlot::collect() {
  points_.clear();
  current_ = -1;
  QString taken;
  for (int row = 0; row < model_.rowCount(); ++row) {
    const QModelIndex index = model_.index(row, AttemptsModel::Attempt);
    const QVariant bytes = index.data(AttemptsModel::BytesRole), score = index.data(AttemptsModel::ScoreRole);
    if (!bytes.isValid() || !score.isValid() || bytes.toLongLong() < 0 || !std::isfinite(score.toDouble())) {
      continue;
    }
    const QString told = words(filled(
        _("{1}: {2}, score {3}, {4}"),
        {index.data().toString().toStdString(), sizeText(bytes.toLongLong()), scoreText(score.toDouble()),
         index.siblingAtColumn(AttemptsModel::Verdict).data().toString().toStdString()}));
    points_.push_back({row, bytes.toDouble(), score.toDouble(), index.data(AttemptsModel::TakenRole).toBool(),
                       index.data(AttemptsModel::PassedRole).toBool(), told});
    if (points_.back().isTaken) taken = told;
  }
  QString told =
      words(counted("{1} attempt was measured.", "{1} attempts were measured.", std::ssize(points_)));
  if (!taken.isEmpty()) told += QLatin1Char(' ') + taken;
  if (const auto tooLow = model_.highestTooLow()) {
    told += QLatin1Char(' ') + words(filled(_("Scores up to {1} were too low."), {scoreText(*tooLow)}));
  }
  setAccessibleDescription(told);
  update();
}

AttemptsPlot::Frame AttemptsPlot::frame() const {
  const QFontMetricsF metrics(font());
  const auto [least, most] = std::ranges::minmax_element(points_, {}, &Point::score);
  Frame frame{};
  // A single score has a span, too.
  constexpr double margin = 2;
  frame.lowest = std::floor(least->score - margin);
  frame.highest = std::ceil(most->score + margin);
  frame.most = std::max(1.0, std::ranges::max(points_, {}, &Point::bytes).bytes * 1.1);
  const qreal labels = metrics.horizontalAdvance(QStringLiteral("000.0 MB ")) + metrics.height();
  const qreal below = metrics.height() * 2.5, above = metrics.height();
  frame.area = QRectF(rect()).adjusted(labels, above, -metrics.height(), -below);
  return frame;
}

qreal AttemptsPlot::radius() const {
  return std::max(3.0, QFontMetricsF(font()).height() / 4);
}

const AttemptsPlot::Point* AttemptsPlot::near(QPointF place) const {
  if (points_.empty()) return nullptr;
  const Frame frame = this->frame();
  const auto distance = [&](const Point& point) {
    return QLineF(frame.place(point.score, point.bytes), place).length();
  };
  const auto nearest = std::ranges::min_element(points_, {}, distance);
  return distance(*nearest) <= 2 * radius() ? &*nearest : nullptr;
}

void AttemptsPlot::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  if (points_.empty()) {
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, words(_("No attempt was measured.")));
    return;
  }
  const Frame frame = this->frame();
  drawField(painter, frame);
  drawAxes(painter, frame);
  for (const auto& point : points_) drawPoint(painter, frame, point);
}

/// The scores that were too low, up to the highest of them: the floor lies no lower.
void AttemptsPlot::drawField(QPainter& painter, const Frame& frame) const {
  painter.fillRect(frame.area, palette().color(QPalette::Base));
  const auto tooLow = model_.highestTooLow();
  if (!tooLow) return;
  const qreal right = frame.place(*tooLow, 0).x();
  const QRectF field(frame.area.topLeft(), QPointF(right, frame.area.bottom()));
  painter.fillRect(field, QBrush(palette().color(QPalette::Mid), Qt::BDiagPattern));
  painter.setPen(QPen(palette().color(QPalette::Text), 1, Qt::DashLine));
  painter.drawLine(field.topRight(), field.bottomRight());
  const QString label = words(filled(_("up to {1}: too low"), {scoreText(*tooLow)}));
  const QRectF above(frame.area.left(), 0, frame.area.width(), frame.area.top());
  painter.setPen(palette().color(QPalette::WindowText));
  // Beside its line, on the side where there is room.
  const bool isLeft = right - frame.area.left() >= QFontMetricsF(font()).horizontalAdvance(label);
  const Qt::Alignment side = (isLeft ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignAbsolute | Qt::AlignVCenter;
  painter.drawText(isLeft ? QRectF(above.left(), 0, right - above.left(), above.height())
                          : QRectF(right, 0, above.right() - right, above.height()),
                   static_cast<int>(side.toInt()), label);
}

void AttemptsPlot::drawAxes(QPainter& painter, const Frame& frame) const {
  const QFontMetricsF metrics(font());
  const QColor ink = palette().color(QPalette::WindowText);
  QColor grid = palette().color(QPalette::Mid);
  grid.setAlphaF(0.5F);
  const QRectF& area = frame.area;
  const double scoreStep = roundStep(frame.highest - frame.lowest), bytesStep = roundStep(frame.most);
  const qreal height = metrics.height();
  for (int tick = static_cast<int>(std::ceil(frame.lowest / scoreStep)); tick * scoreStep <= frame.highest;
       ++tick) {
    const double score = tick * scoreStep;
    const qreal x = frame.place(score, 0).x();
    painter.setPen(grid);
    painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
    painter.setPen(ink);
    painter.drawText(QRectF(x - 3 * height, area.bottom(), 6 * height, height * 1.2), Qt::AlignCenter,
                     tickText(score, scoreStep));
  }
  for (int tick = 0; tick * bytesStep <= frame.most; ++tick) {
    const double bytes = tick * bytesStep;
    const qreal y = frame.place(frame.lowest, bytes).y();
    painter.setPen(grid);
    painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
    painter.setPen(ink);
    painter.drawText(QRectF(0, y - height / 2, area.left() - height / 3, height),
                     Qt::AlignRight | Qt::AlignAbsolute | Qt::AlignVCenter,
                     amountWords(sizeText(static_cast<std::int64_t>(bytes))));
  }
  painter.setPen(ink);
  painter.drawLine(area.bottomLeft(), area.bottomRight());
  painter.drawLine(area.bottomLeft(), area.topLeft());
  painter.drawText(QRectF(area.left(), area.bottom() + height * 1.2, area.width(), height * 1.3),
                   Qt::AlignCenter, words(_("Score")));
}

void AttemptsPlot::drawPoint(QPainter& painter, const Frame& frame, const Point& point) const {
  const QPointF place = frame.place(point.score, point.bytes);
  const QColor ink = palette().color(point.isTaken ? QPalette::Highlight : QPalette::Text);
  const qreal size = radius();
  painter.setPen(QPen(ink, size / 3));
  painter.setBrush(point.isPassed ? QBrush(ink) : QBrush(palette().color(QPalette::Base)));
  painter.drawEllipse(place, size, size);
  painter.setBrush(Qt::NoBrush);
  if (point.isTaken) painter.drawEllipse(place, size * 1.8, size * 1.8);
  if (point.row != current_) return;
  painter.setPen(QPen(palette().color(QPalette::Text), 1, Qt::DashLine));
  painter.drawRect(QRectF(place.x() - size * 2.3, place.y() - size * 2.3, size * 4.6, size * 4.6));
}

void AttemptsPlot::mousePressEvent(QMouseEvent* event) {
  if (const auto* point = near(event->position())) Q_EMIT picked(point->row);
}

bool AttemptsPlot::event(QEvent* event) {
  if (event->type() != QEvent::ToolTip) return QWidget::event(event);
  const auto* help = static_cast<QHelpEvent*>(event);
  const auto* point = near(QPointF(help->pos()));
  QToolTip::showText(help->globalPos(), point ? point->words : QString(), this);
  return true;
}

}  // namespace tidewell::desktop
