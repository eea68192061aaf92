// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QPointF>
#include <QRect>
#include <QWidget>
#include <vector>

#include "TidewellDesktop/compare/CompareModel.h"
#include "TidewellDesktop/compare/Viewport.h"

class QGestureEvent;
class QNativeGestureEvent;

namespace tidewell::desktop {

/// Paints the pictures of a comparison: one of them, or both, parted by a handle or side by side, which move
/// and grow together. Of large ones it asks for no more tiles than are to be seen.
class PictureView : public QWidget {
  Q_OBJECT

 public:
  enum class Shown { original, both, result, difference };

  /// The model must outlive it.
  explicit PictureView(CompareModel& model, QWidget* parent = nullptr);

  Shown shown() const { return shown_; }
  void setShown(Shown shown);
  bool isSideBySide() const { return sideBySide_; }
  void setSideBySide(bool sideBySide);
  /// Where the handle stands, from 0 to 1.
  double split() const { return split_; }
  void setSplit(double split);

  const Viewport& viewport() const { return viewport_; }
  void fit();
  /// A pixel of the picture for each of the device.
  void showActualSize();
  void zoomBy(double factor);

  QSize sizeHint() const override;

 Q_SIGNALS:
  void shownChanged();
  /// The scale is another one.
  void zoomed();

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  /// A picture and the part of the widget that shows it, in pixels of the device.
  struct Pane {
    Picture picture;
    QRect window;  ///< what the viewport is laid over
    QRect clip;    ///< what is painted of it
  };
  std::vector<Pane> panes() const;
  QRect deviceRect() const;
  QPointF anchorAt(QPointF position) const;
  QPointF centerAnchor() const;
  bool isOnHandle(QPointF position) const;
  bool hasHandle() const { return shown_ == Shown::both && !sideBySide_; }
  void layOut();
  void zoom(double scale, QPointF anchor);
  void gesture(QGestureEvent& event);
  void nativeGesture(const QNativeGestureEvent& event);
  void describe();
  void paintPane(QPainter& painter, const Pane& pane, std::vector<TileKey>& wanted) const;
  void paintTiles(QPainter& painter, const Pane& pane, std::vector<TileKey>& wanted) const;
  void paintLabel(QPainter& painter, const Pane& pane, bool atEnd) const;
  void paintHandle(QPainter& painter) const;
  QRect target(const Pane& pane, const QRectF& area) const;

  CompareModel& model_;
  Viewport viewport_;
  Shown shown_ = Shown::both;
  bool sideBySide_ = false;
  double split_ = 0.5;
  bool draggingHandle_ = false, panning_ = false;
  QPointF lastPosition_;
};

}  // namespace tidewell::desktop
