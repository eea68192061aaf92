// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

namespace tidewell::desktop {

/// Which part of a picture a window shows, and how large. The picture is measured in its pixels, the window
/// in those of the device.
class Viewport {
 public:
  static constexpr double largestScale = 32;

  void setPicture(QSizeF size);
  void setWindow(QSizeF size);

  /// Pixels of the device for each of the picture.
  double scale() const { return scale_; }
  /// The whole picture is shown, and will be when a size changes.
  bool isFitted() const { return fitted_; }

  /// Never enlarged.
  void fit();
  /// Keeps what lies under `anchor`, a point of the window, where it is.
  void zoomTo(double scale, QPointF anchor);
  void zoomBy(double factor, QPointF anchor) { zoomTo(scale_ * factor, anchor); }
  /// Moves the picture by pixels of the device.
  void pan(QPointF by);

  QPointF toWindow(QPointF picture) const;
  QPointF toPicture(QPointF window) const;
  /// Of the picture, cut off at its edges.
  QRectF visible() const;

 private:
  double fittingScale() const;
  void clamp();

  QSizeF picture_, window_;
  QPointF center_;  ///< of the window, in the picture
  double scale_ = 1;
  bool fitted_ = true;
};

}  // namespace tidewell::desktop
