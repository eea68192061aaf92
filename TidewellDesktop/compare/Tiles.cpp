// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/compare/Tiles.h"

#include <QHashFunctions>
#include <algorithm>
#include <exception>
#include <utility>

#include "TidewellDesktop/support/Background.h"

namespace tidewell::desktop {
namespace {

const ScreenPicture& pictureOf(const ImageRendering::ScreenPictures& pictures, Picture picture) {
  return picture == Picture::result ? *pictures.compressed : *pictures.original;
}

Rectangle areaOf(const ScreenPicture& picture, const TileKey& key) {
  const std::int64_t side = std::int64_t{Tiles::side} * key.reduction;
  Rectangle area{.x = key.column * side, .y = key.row * side, .width = side, .height = side};
  area.width = std::min(side, picture.width() - area.x);
  area.height = std::min(side, picture.height() - area.y);
  return area;
}

/// Null for what cannot be read.
QImage made(const ImageRendering::ScreenPictures& pictures, const TileKey& key, int amplification) {
  try {
    const ScreenPicture& picture = pictureOf(pictures, key.picture);
    const Rectangle area = areaOf(picture, key);
    const Bitmap part = picture.part(area, key.reduction);
    if (key.picture != Picture::difference) return imageOf(part);
    return differenceOf(part, pictures.compressed->part(area, key.reduction), amplification);
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

std::size_t qHash(const TileKey& key, std::size_t seed) {
  return qHashMulti(seed, static_cast<int>(key.picture), key.reduction, key.column, key.row);
}

void Tiles::open(std::shared_ptr<const ImageRendering::ScreenPictures> pictures, int amplification) {
  close();
  pictures_ = std::move(pictures);
  amplification_ = amplification;
}

void Tiles::close() {
  ++generation_;
  pictures_.reset();
  cache_.clear();
  cache_.setMaxCost(usualBytes);
  wanted_.clear();
  begun_.clear();
  failed_.clear();
}

QRect Tiles::area(const TileKey& key) const {
  const Rectangle area = areaOf(pictureOf(*pictures_, key.picture), key);
  return {static_cast<int>(area.x), static_cast<int>(area.y), static_cast<int>(area.width),
          static_cast<int>(area.height)};
}

void Tiles::want(std::vector<TileKey> keys) {
  if (!pictures_) return;
  // What is seen at once must fit, or it would push itself out for ever.
  const auto seen = static_cast<qsizetype>(keys.size()) * side * side * 4;
  cache_.setMaxCost(std::max(usualBytes, seen + seen / 2));
  std::erase_if(keys, [this](const TileKey& key) {
    return cache_.contains(key) || begun_.contains(key) || failed_.contains(key);
  });
  std::ranges::reverse(keys);
  wanted_ = std::move(keys);
  while (begun_.size() < atOnce && !wanted_.empty()) startNext();
}

void Tiles::startNext() {
  const TileKey key = wanted_.back();
  wanted_.pop_back();
  begun_.insert(key);
  inBackground(
      this,
      [pictures = pictures_, key, amplification = amplification_] {
        return made(*pictures, key, amplification);
      },
      [this, key, generation = generation_](QImage image) {
        if (generation != generation_) return;
        begun_.erase(key);
        if (image.isNull()) {
          failed_.insert(key);
        } else {
          const qsizetype bytes = image.sizeInBytes();
          cache_.insert(key, new QImage(std::move(image)), bytes);
        }
        while (begun_.size() < atOnce && !wanted_.empty()) startNext();
        Q_EMIT arrived();
      },
      &pool_);
}

}  // namespace tidewell::desktop
