#pragma once

#include <QWidget>
#include <vector>

namespace tidewell::desktop {

class AttemptsModel;

/// Bytes over score of the attempts that have both: a filled point passed, an open one did not, and a ring
/// marks the one that was taken. Scores that were too low lie in a shaded field. Draws with the palette only.
class AttemptsPlot : public QWidget {
  Q_OBJECT

 public:
  /// The model must outlive it.
  explicit AttemptsPlot(const AttemptsModel& model, QWidget* parent = nullptr);

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;
  /// Marks one row of the model; -1 none.
  void setCurrent(int row);

 protected:
  void paintEvent(QPaintEvent* event) override;
  bool event(QEvent* event) override;

 private:
  struct Point {
    int row;
    double bytes, score;
    bool isTaken, isPassed;
  };
  struct Frame;

  void collect();
  Frame frame() const;
  void drawAxes(QPainter& painter, const Frame& frame) const;
  void drawPoints(QPainter& painter, const Frame& frame) const;

  const AttemptsModel& model_;
  std::vector<Point> points_;
  int current_ = -1;
};

}  // namespace tidewell::desktop
