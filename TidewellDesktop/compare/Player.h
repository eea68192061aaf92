// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QTimer>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "CompressionKit/image/UnchangedFiles.h"
#include "CompressionKit/platform/Stop.h"
#include "TidewellDesktop/compare/Images.h"

namespace tidewell::desktop {

/// What two animations show together, and for how long.
struct PlayerStep {
  std::array<std::size_t, 2> frames{};  ///< of the original and of the result
  double seconds = 0;
  bool operator==(const PlayerStep&) const = default;
};
/// With as many frames, those of one number belong together, for as long as the original says; else both go
/// by time, and the shorter one stays at its last frame. The delays are not empty.
std::vector<PlayerStep> stepsOf(const std::vector<double>& original, const std::vector<double>& result);

/// Plays two animations in step: frames are composed in the background, one pair at a time, and show
/// together.
class Player : public QObject {
  Q_OBJECT

 public:
  /// `pool` must outlive it.
  explicit Player(QThreadPool& pool, QObject* parent = nullptr);

  /// Begins to play. `amplification` is that of the difference, or 0 where there is none.
  void open(const UnchangedFiles& files, int amplification, const StopToken& stop);
  void close();
  /// There are frames to be seen.
  bool isOpen() const { return !steps_.empty() && !frames_[0].isNull(); }
  bool isPlaying() const { return playing_; }
  void setPlaying(bool playing);
  /// Pauses, and goes so many steps on, or back.
  void step(int steps);
  std::size_t position() const { return position_; }
  std::size_t count() const { return steps_.size(); }
  const QImage& frame(Picture picture) const { return frames_[static_cast<std::size_t>(picture)]; }

 Q_SIGNALS:
  void frameChanged();
  void playingChanged();
  /// It ended: a file changed, perhaps.
  void failed(QString words);

 private:
  struct Animations;
  struct Composed;
  void compose(std::size_t step);
  void show(Composed composed, std::size_t step);

  QThreadPool& pool_;
  std::shared_ptr<Animations> animations_;  ///< one thread at a time: while `composing_`, that in the pool
  std::vector<PlayerStep> steps_;
  std::size_t position_ = 0;
  int amplification_ = 0;
  int generation_ = 0;
  bool playing_ = false, composing_ = false;
  std::optional<std::size_t> pending_;  ///< asked for while another was composed
  std::array<QImage, 3> frames_;
  QTimer timer_;
  QElapsedTimer composingFor_;
};

}  // namespace tidewell::desktop
