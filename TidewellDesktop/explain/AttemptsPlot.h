// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QWidget>
#include <vector>

namespace tidewell::desktop {

class AttemptsModel;

/// Bytes over score of the attempts that have both: a full point passed, an open one did not, and a ring
/// marks the one that was taken. Scores that were too low lie in a shaded field. Draws with the palette only.
class AttemptsPlot : public QWidget {
  Q_OBJECT

 public:
  /// The model must outlive it.
  explicit AttemptsPlot(const AttemptsModel& model, QWidget* parent = nullptr);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;
  /// Marks the point of one row of the model; -1 none.
  void setCurrent(int row);

 Q_SIGNALS:
  /// The point of a row was clicked.
  void picked(int row);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  bool event(QEvent* event) override;

 private:
  struct Point {
    int row;
    double bytes, score;
    bool isTaken, isPassed;
    QString words;
  };
  /// Where the axes lie and what they span.
  struct Frame {
    QRectF area;
    double lowest, highest, most;
    QPointF place(double score, double bytes) const;
  };

  void collect();
  Frame frame() const;
  const Point* near(QPointF place) const;
  qreal radius() const;
  void drawField(QPainter& painter, const Frame& frame) const;
  void drawAxes(QPainter& painter, const Frame& frame) const;
  void drawPoint(QPainter& painter, const Frame& frame, const Point& point) const;

  const AttemptsModel& model_;
  std::vector<Point> points_;
  int current_ = -1;
};

}  // namespace tidewell::desktop
