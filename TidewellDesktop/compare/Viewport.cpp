// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/Viewport.h"

#include <algorithm>

namespace tidewell::desktop {

void Viewport::setPicture(QSizeF size) {
  if (picture_ == size) return;
  picture_ = size;
  fit();
}

void Viewport::setWindow(QSizeF size) {
  if (window_ == size) return;
  window_ = size;
  fitted_ ? fit() : clamp();
}

void Viewport::fit() {
  fitted_ = true;
  scale_ = fittingScale();
  center_ = QPointF(picture_.width() / 2, picture_.height() / 2);
}

void Viewport::zoomTo(double scale, QPointF anchor) {
  const QPointF kept = toPicture(anchor);
  scale_ = std::clamp(scale, fittingScale(), largestScale);
  fitted_ = scale_ == fittingScale() && scale <= scale_;
  center_ += kept - toPicture(anchor);
  clamp();
}

void Viewport::pan(QPointF by) {
  center_ -= by / scale_;
  clamp();
}

QPointF Viewport::toWindow(QPointF picture) const {
  return (picture - center_) * scale_ + QPointF(window_.width() / 2, window_.height() / 2);
}

QPointF Viewport::toPicture(QPointF window) const {
  return (window - QPointF(window_.width() / 2, window_.height() / 2)) / scale_ + center_;
}

QRectF Viewport::visible() const {
  return QRectF(toPicture({0, 0}), toPicture({window_.width(), window_.height()})) &
         QRectF(QPointF(0, 0), picture_);
}

double Viewport::fittingScale() const {
  if (picture_.isEmpty() || window_.isEmpty()) return 1;
  return std::min({1.0, window_.width() / picture_.width(), window_.height() / picture_.height()});
}

/// No room is wasted beside a picture that is larger than the window; a smaller one stays in the middle.
void Viewport::clamp() {
  const auto clamped = [this](double center, double window, double picture) {
    const double half = window / scale_ / 2;
    return half * 2 >= picture ? picture / 2 : std::clamp(center, half, picture - half);
  };
  center_ = {clamped(center_.x(), window_.width(), picture_.width()),
             clamped(center_.y(), window_.height(), picture_.height())};
}

}  // namespace tidewell::desktop
