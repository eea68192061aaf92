// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/PictureView.h"

#include <QGestureEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPinchGesture>
#include <QPointingDevice>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

constexpr double zoomStep = 1.25;

}  // namespace

PictureView::PictureView(CompareModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  grabGesture(Qt::PinchGesture);
  setAccessibleName(words(_("Pictures")));
  connect(&model_, &CompareModel::picturesChanged, this, qOverload<>(&QWidget::update));
  connect(&model_, &CompareModel::stateChanged, this, [this] {
    if (model_.state() == CompareModel::State::ready) {
      layOut();
      if (shown_ == Shown::difference && !model_.hasDifference()) setShown(Shown::both);
    }
    update();
  });
  describe();
}

QSize PictureView::sizeHint() const {
  const int line = fontMetrics().height();
  return {40 * line, 30 * line};
}

void PictureView::setShown(Shown shown) {
  if (shown_ == shown || (shown == Shown::difference && !model_.hasDifference())) return;
  shown_ = shown;
  layOut();
  describe();
  Q_EMIT shownChanged();
}

void PictureView::setSideBySide(bool sideBySide) {
  sideBySide_ = sideBySide;
  layOut();
  describe();
}

void PictureView::setSplit(double split) {
  split_ = std::clamp(split, 0.0, 1.0);
  describe();
  update();
}

void PictureView::fit() {
  viewport_.fit();
  update();
  Q_EMIT zoomed();
}

void PictureView::showActualSize() {
  zoom(1, centerAnchor());
}

void PictureView::zoomBy(double factor) {
  zoom(viewport_.scale() * factor, centerAnchor());
}

void PictureView::zoom(double scale, QPointF anchor) {
  // Steps must not pass by what is plain.
  if (std::abs(scale - 1) < 0.02) scale = 1;
  viewport_.zoomTo(scale, anchor);
  update();
  Q_EMIT zoomed();
}

/// What a screen reader says of the picture.
void PictureView::describe() {
  QString text;
  switch (shown_) {
    case Shown::original:
      text = words(_("The original"));
      break;
    case Shown::result:
      text = words(_("The result"));
      break;
    case Shown::difference:
      text = words(_("The amplified difference"));
      break;
    case Shown::both:
      text = sideBySide_ ? words(_("Original and result side by side"))
                         : words(_("Original and result, parted at {1}%"),
                                 {QString::number(static_cast<int>(std::lround(split_ * 100)))});
  }
  setAccessibleDescription(text);
}

QRect PictureView::deviceRect() const {
  return {0, 0, static_cast<int>(std::lround(width() * devicePixelRatioF())),
          static_cast<int>(std::lround(height() * devicePixelRatioF()))};
}

std::vector<PictureView::Pane> PictureView::panes() const {
  const QRect all = deviceRect();
  switch (shown_) {
    case Shown::original:
      return {{Picture::original, all, all}};
    case Shown::result:
      return {{Picture::result, all, all}};
    case Shown::difference:
      return {{Picture::difference, all, all}};
    case Shown::both:
      break;
  }
  // The original is where reading begins.
  const Picture left = isRightToLeft() ? Picture::result : Picture::original;
  const Picture right = isRightToLeft() ? Picture::original : Picture::result;
  QRect first = all, second = all;
  std::vector<Pane> panes;
  if (sideBySide_) {
    const int gap = 2;
    first.setWidth((all.width() - gap) / 2);
    second.setLeft(all.right() + 1 - first.width());
    panes = {{left, first, first}, {right, second, second}};
  } else {
    first.setWidth(static_cast<int>(std::lround(std::round(split_ * width()) * devicePixelRatioF())));
    second.setLeft(first.width());
    panes = {{left, all, first}, {right, all, second}};
  }
  if (isRightToLeft()) std::swap(panes[0], panes[1]);
  return panes;
}

void PictureView::layOut() {
  viewport_.setPicture(model_.size(Picture::original));
  viewport_.setWindow(panes().front().window.size());
  update();
  Q_EMIT zoomed();
}

void PictureView::resizeEvent(QResizeEvent*) {
  layOut();
}

/// In the pane that lies under it.
QPointF PictureView::anchorAt(QPointF position) const {
  const QPointF device = position * devicePixelRatioF();
  for (const Pane& pane : panes()) {
    if (QRectF(pane.clip).contains(device)) return device - pane.window.topLeft();
  }
  return centerAnchor();
}

QPointF PictureView::centerAnchor() const {
  const QRect window = panes().front().window;
  return {window.width() / 2.0, window.height() / 2.0};
}

bool PictureView::isOnHandle(QPointF position) const {
  return hasHandle() && std::abs(position.x() - split_ * width()) <= fontMetrics().height() * 0.6;
}

bool PictureView::event(QEvent* event) {
  if (event->type() == QEvent::NativeGesture) {
    nativeGesture(*static_cast<QNativeGestureEvent*>(event));
    return true;
  }
  if (event->type() == QEvent::Gesture) {
    gesture(*static_cast<QGestureEvent*>(event));
    return true;
  }
  return QWidget::event(event);
}

void PictureView::nativeGesture(const QNativeGestureEvent& event) {
  if (event.gestureType() != Qt::ZoomNativeGesture) return;
  zoom(viewport_.scale() * (1 + event.value()), anchorAt(event.position()));
}

void PictureView::gesture(QGestureEvent& event) {
  auto* pinch = static_cast<QPinchGesture*>(event.gesture(Qt::PinchGesture));
  if (!pinch) return;
  if (pinch->changeFlags() & QPinchGesture::ScaleFactorChanged) {
    zoom(viewport_.scale() * pinch->scaleFactor(), anchorAt(mapFromGlobal(pinch->centerPoint())));
  }
  event.accept(pinch);
}

void PictureView::wheelEvent(QWheelEvent* event) {
  const bool isTouchPad =
      event->pointingDevice() && event->pointingDevice()->type() == QInputDevice::DeviceType::TouchPad;
  const bool zooms = event->modifiers().testFlag(Qt::ControlModifier);
  if (!zooms && (isTouchPad || !event->pixelDelta().isNull())) {
    const QPointF delta =
        event->pixelDelta().isNull() ? QPointF(event->angleDelta()) / 2 : QPointF(event->pixelDelta());
    viewport_.pan(delta * devicePixelRatioF());
    update();
  } else {
    zoom(viewport_.scale() * std::pow(zoomStep, event->angleDelta().y() / 120.0),
         anchorAt(event->position()));
  }
  event->accept();
}

void PictureView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton && event->button() != Qt::MiddleButton) return;
  draggingHandle_ = event->button() == Qt::LeftButton && isOnHandle(event->position());
  panning_ = !draggingHandle_;
  lastPosition_ = event->position();
  setCursor(draggingHandle_ ? Qt::SplitHCursor : Qt::ClosedHandCursor);
  update();
}

void PictureView::mouseMoveEvent(QMouseEvent* event) {
  const QPointF moved = event->position() - lastPosition_;
  lastPosition_ = event->position();
  if (draggingHandle_) {
    setSplit(event->position().x() / std::max(1, width()));
  } else if (panning_) {
    viewport_.pan(moved * devicePixelRatioF());
    update();
  } else {
    setCursor(isOnHandle(event->position()) ? Qt::SplitHCursor : Qt::OpenHandCursor);
  }
}

void PictureView::mouseReleaseEvent(QMouseEvent* event) {
  draggingHandle_ = panning_ = false;
  setCursor(isOnHandle(event->position()) ? Qt::SplitHCursor : Qt::OpenHandCursor);
  update();
}

void PictureView::mouseDoubleClickEvent(QMouseEvent* event) {
  if (isOnHandle(event->position())) return setSplit(0.5);
  viewport_.isFitted() ? zoom(1, anchorAt(event->position())) : fit();
}

void PictureView::keyPressEvent(QKeyEvent* event) {
  const double step = 4.0 * fontMetrics().height() * devicePixelRatioF();
  const bool movesHandle = event->modifiers().testFlag(Qt::ShiftModifier) && hasHandle();
  const auto move = [&](double x, double y) {
    if (movesHandle) return setSplit(split_ - (x > 0 ? 0.02 : x < 0 ? -0.02 : 0));
    viewport_.pan({x * step, y * step});
    update();
  };
  switch (event->key()) {
    case Qt::Key_Left:
      return move(1, 0);
    case Qt::Key_Right:
      return move(-1, 0);
    case Qt::Key_Up:
      return move(0, 1);
    case Qt::Key_Down:
      return move(0, -1);
    case Qt::Key_Space:
      return model_.player().setPlaying(!model_.player().isPlaying());
    case Qt::Key_Plus:
    case Qt::Key_Equal:
      return zoomBy(zoomStep);
    case Qt::Key_Minus:
      return zoomBy(1 / zoomStep);
    default:
      QWidget::keyPressEvent(event);
  }
}

}  // namespace tidewell::desktop
