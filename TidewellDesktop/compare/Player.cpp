// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/Player.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <numeric>
#include <utility>

#include "CompressionKit/image/ScreenPicture.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

/// Frames of more pixels a side are reduced: a few of them are held at once.
constexpr std::int64_t maximumFrameSide = 4096;

}  // namespace

std::vector<PlayerStep> stepsOf(const std::vector<double>& original, const std::vector<double>& result) {
  std::vector<PlayerStep> steps;
  if (original.size() == result.size()) {
    for (std::size_t i = 0; i < original.size(); ++i)
      steps.push_back({.frames = {i, i}, .seconds = original[i]});
    return steps;
  }
  constexpr double never = std::numeric_limits<double>::infinity();
  constexpr double nothing = 1e-6;  // sums of delays are not exact
  const std::array<const std::vector<double>*, 2> delays = {&original, &result};
  std::array<std::size_t, 2> frames{};
  std::array<double, 2> ends = {original[0], result[0]};
  double now = 0;
  while (now < never) {
    const double next = std::min(ends[0], ends[1]);
    if (next == never) break;
    steps.push_back({.frames = frames, .seconds = next - now});
    now = next;
    for (std::size_t i = 0; i < 2; ++i) {
      if (ends[i] > now + nothing) continue;
      const bool isLast = frames[i] + 1 == delays[i]->size();
      ends[i] = isLast ? never : ends[i] + (*delays[i])[++frames[i]];
    }
  }
  return steps;
}

struct Player::Animations {
  Animations(const UnchangedFiles& files, const StopToken& stop)
      : original(files.original(), maximumFrameSide, stop),
        result(files.compressed(), maximumFrameSide, stop) {}
  ScreenAnimation original, result;
};

struct Player::Composed {
  std::array<QImage, 3> frames;
  QString problem;

  /// Never throws.
  static Composed of(Animations& animations, const PlayerStep& step, int amplification) {
    Composed composed;
    try {
      const Bitmap original = animations.original.frame(step.frames[0]);
      const Bitmap result = animations.result.frame(step.frames[1]);
      composed.frames = {imageOf(original), imageOf(result), QImage()};
      if (amplification > 0) composed.frames[2] = differenceOf(original, result, amplification);
    } catch (const std::exception&) {
      composed.problem = words(describedError(std::current_exception()));
    }
    return composed;
  }
};

Player::Player(QThreadPool& pool, QObject* parent) : QObject(parent), pool_(pool) {
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, [this] { compose((position_ + 1) % steps_.size()); });
}

void Player::open(const UnchangedFiles& files, int amplification, const StopToken& stop) {
  close();
  amplification_ = amplification;
  struct Opened {
    std::shared_ptr<Animations> animations;
    QString problem;
  };
  inBackground(
      this,
      [files, stop] {
        Opened opened;
        try {
          opened.animations = std::make_shared<Animations>(files, stop);
          files.check();
        } catch (const std::exception&) {
          opened.problem = words(describedError(std::current_exception()));
        }
        return opened;
      },
      [this, generation = generation_](const Opened& opened) {
        if (generation != generation_) return;
        if (!opened.problem.isEmpty()) return Q_EMIT failed(opened.problem);
        animations_ = opened.animations;
        steps_ = stepsOf(animations_->original.delays(), animations_->result.delays());
        playing_ = true;
        compose(0);
        Q_EMIT playingChanged();
      },
      &pool_);
}

void Player::close() {
  ++generation_;
  timer_.stop();
  animations_.reset();
  steps_.clear();
  frames_ = {};
  position_ = 0;
  pending_.reset();
  playing_ = composing_ = false;
}

void Player::setPlaying(bool playing) {
  if (playing == playing_ || steps_.empty()) return;
  playing_ = playing;
  if (playing) {
    compose((position_ + 1) % steps_.size());
  } else {
    timer_.stop();
    pending_.reset();
  }
  Q_EMIT playingChanged();
}

void Player::step(int steps) {
  if (steps_.empty()) return;
  setPlaying(false);
  const auto count = static_cast<std::ptrdiff_t>(steps_.size());
  const auto from = static_cast<std::ptrdiff_t>(pending_.value_or(position_));
  compose(static_cast<std::size_t>(((from + steps) % count + count) % count));
}

void Player::compose(std::size_t step) {
  if (composing_) {
    pending_ = step;
    return;
  }
  composing_ = true;
  composingFor_.start();
  inBackground(
      this,
      [animations = animations_, step = steps_[step], amplification = amplification_] {
        return Composed::of(*animations, step, amplification);
      },
      [this, step, generation = generation_](Composed composed) {
        if (generation == generation_) show(std::move(composed), step);
      },
      &pool_);
}

void Player::show(Composed composed, std::size_t step) {
  composing_ = false;
  if (!composed.problem.isEmpty()) return Q_EMIT failed(composed.problem);
  frames_ = std::move(composed.frames);
  position_ = step;
  if (const auto next = std::exchange(pending_, std::nullopt)) {
    compose(*next);
  } else if (playing_ && steps_.size() > 1) {
    // Composing the next frame will take as long as this one did.
    const double wait = steps_[step].seconds * 1000 - static_cast<double>(composingFor_.elapsed());
    timer_.start(static_cast<int>(std::clamp(wait, 1.0, 655350.0)));
  }
  Q_EMIT frameChanged();
}

}  // namespace tidewell::desktop
