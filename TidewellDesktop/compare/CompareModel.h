// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QImage>
#include <QObject>
#include <QSize>
#include <QString>
#include <QThreadPool>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/image/ScreenPicture.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/compare/Images.h"
#include "TidewellDesktop/compare/Player.h"
#include "TidewellDesktop/compare/Tiles.h"

namespace tidewell::desktop {

/// What is told beside the pictures.
struct CompareFacts {
  std::int64_t originalBytes = 0, resultBytes = 0;
  std::optional<double> score;
  std::optional<std::string> encoder;
  std::optional<std::vector<std::string>> lostMetadata;  ///< absent where it could not be read
  std::array<QSize, 2> sizes;                            ///< of the original and of the result
  std::array<std::size_t, 2> frames{};
  std::array<std::optional<std::string>, 2> profiles;
};

/// A pair that is compared: loaded in the background, reduced views first and then all that is needed to
/// look closely. Lives on the interface's thread and never blocks it.
class CompareModel : public QObject {
  Q_OBJECT

 public:
  enum class State { empty, loading, failed, ready };

  explicit CompareModel(UndoStore store, QObject* parent = nullptr);
  /// Waits for what was begun, which is told to stop.
  ~CompareModel() override;

  /// In place of what was open.
  void open(const UndoRecord& record);
  void close();

  State state() const { return state_; }
  /// Why it failed, in words.
  const QString& problem() const { return problem_; }
  /// Something that does not hinder the comparison, in words; empty without.
  const QString& remark() const { return remark_; }
  const UndoRecord& record() const { return *record_; }
  const CompareFacts& facts() const { return facts_; }

  /// Both have one size, so that there is a difference.
  bool hasDifference() const { return amplification_ > 0; }
  /// That of the difference.
  int amplification() const { return amplification_; }
  bool isAnimated() const { return facts_.frames[0] > 1 || facts_.frames[1] > 1; }
  /// In pixels. A difference has that of the original.
  QSize size(Picture picture) const { return facts_.sizes[picture == Picture::result ? 1 : 0]; }
  /// The whole picture, reduced; of an animation the frame that is shown now.
  const QImage& whole(Picture picture) const;
  /// Open once parts of the pictures are to be had; never for animations.
  Tiles& tiles() { return tiles_; }
  Player& player() { return player_; }

 Q_SIGNALS:
  void stateChanged();
  /// Other pixels are to be painted.
  void picturesChanged();

 private:
  struct Loaded;
  static Loaded load(const UndoStore& store, const UndoRecord& record, const StopToken& stop);
  void show(Loaded loaded);
  void prepareTiles();
  void fail(const QString& problem);

  /// Longer side of the reduced views: a large screen shows the whole picture with them.
  static constexpr std::int64_t wholeSide = 2560;

  UndoStore store_;
  QThreadPool pool_;
  std::unique_ptr<StopSource> stop_;
  int generation_ = 0;
  State state_ = State::empty;
  QString problem_, remark_;
  std::optional<UndoRecord> record_;
  CompareFacts facts_;
  int amplification_ = 0;
  std::shared_ptr<const ImageRendering::ScreenPictures> pictures_;
  std::array<QImage, 3> wholes_;
  Tiles tiles_{pool_};
  Player player_{pool_};
};

}  // namespace tidewell::desktop
