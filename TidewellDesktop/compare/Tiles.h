// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QCache>
#include <QImage>
#include <QObject>
#include <QRect>
#include <QThreadPool>
#include <cstddef>
#include <memory>
#include <set>
#include <vector>

#include "CompressionKit/image/ScreenPicture.h"
#include "TidewellDesktop/compare/Images.h"

namespace tidewell::desktop {

/// One square of a picture, whose sides were divided by `reduction`, a power of two.
struct TileKey {
  Picture picture = Picture::original;
  int reduction = 1;
  int column = 0, row = 0;
  auto operator<=>(const TileKey&) const = default;
};
std::size_t qHash(const TileKey& key, std::size_t seed = 0);

/// The tiles of a pair, made in the background when they are wanted, and kept while there is room.
class Tiles : public QObject {
  Q_OBJECT

 public:
  static constexpr int side = 512;  ///< of a tile; those at the right and at the bottom are smaller

  /// `pool` must outlive it.
  explicit Tiles(QThreadPool& pool, QObject* parent = nullptr) : QObject(parent), pool_(pool) {}

  /// Parts of both pictures must be prepared, and the pool idle before they go.
  void open(std::shared_ptr<const ImageRendering::ScreenPictures> pictures, int amplification);
  void close();
  bool isOpen() const { return pictures_ != nullptr; }

  /// In pixels of the picture.
  QRect area(const TileKey& key) const;
  /// Null while it is not there. Valid until the next call of anything here.
  const QImage* find(const TileKey& key) const { return cache_.object(key); }
  /// All that is to be seen now, the most urgent first: what was wanted before and has not been begun is
  /// forgotten.
  void want(std::vector<TileKey> keys);

 Q_SIGNALS:
  void arrived();

 private:
  static constexpr qsizetype usualBytes = qsizetype{128} << 20;
  static constexpr std::size_t atOnce = 2;
  void startNext();

  QThreadPool& pool_;
  std::shared_ptr<const ImageRendering::ScreenPictures> pictures_;
  int amplification_ = 1;
  int generation_ = 0;
  QCache<TileKey, QImage> cache_{usualBytes};
  std::vector<TileKey> wanted_;  ///< the most urgent last
  std::set<TileKey> begun_;
  std::set<TileKey> failed_;  ///< not tried again
};

}  // namespace tidewell::desktop
