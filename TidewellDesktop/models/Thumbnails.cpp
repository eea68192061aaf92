// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/Thumbnails.h"

#include <QColorSpace>
#include <QMetaObject>
#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "CompressionKit/image/ImageRendering.h"

namespace tidewell::desktop {
namespace {

/// No more than the kit decodes at once, so that a wish can be dropped as long as possible.
constexpr std::size_t atOnce = 2;

/// Null where the file is no picture (any more).
QImage pictureOf(const URL& file, int pixels) {
  try {
    const Bitmap bitmap = ImageRendering::thumbnail(file, pixels);
    QImage image(static_cast<int>(bitmap.width), static_cast<int>(bitmap.height),
                 QImage::Format_RGBA8888_Premultiplied);
    if (image.isNull()) return {};
    for (int y = 0; y < image.height(); ++y) {
      const auto row = bitmap.row(y);
      std::memcpy(image.scanLine(y), row.data(), row.size());
    }
    if (!bitmap.color.icc.empty()) {
      const auto space = QColorSpace::fromIccProfile(QByteArray::fromStdString(bitmap.color.icc));
      if (space.isValid()) {
        image.setColorSpace(space);
        image.convertToColorSpace(QColorSpace::SRgb);
      }
    }
    return image;
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

Thumbnails::Thumbnails(int pixels, int bytes, QObject* parent)
    : QObject(parent), pixels_(pixels), kept_(bytes) {}

Thumbnails::~Thumbnails() {
  for (auto& [path, made] : underWay_) made.wait();
}

void Thumbnails::want(const std::vector<URL>& visible) {
  wishes_.clear();
  for (const URL& file : visible) {
    if (!underWay_.contains(file.path()) && !kept_.contains(QByteArray::fromStdString(file.path()))) {
      wishes_.push_back(file);
    }
  }
  makeNext();
}

QImage Thumbnails::image(const QByteArray& path) const {
  const QImage* kept = kept_.object(path);
  return kept ? *kept : QImage();
}

void Thumbnails::makeNext() {
  while (underWay_.size() < atOnce && !wishes_.empty()) {
    URL file = std::move(wishes_.front());
    wishes_.pop_front();
    // This waits for the operation before it goes, so the operation may name it.
    std::string path = file.path();
    underWay_[std::move(path)] =
        ImageRendering::read(OperationQueue::Priority::low, [this, file, pixels = pixels_] {
          QMetaObject::invokeMethod(
              this, [this, path = file.path(), image = pictureOf(file, pixels)] { keep(path, image); },
              Qt::QueuedConnection);
        });
  }
}

void Thumbnails::keep(const std::string& path, const QImage& image) {
  underWay_.erase(path);
  const QByteArray key = QByteArray::fromStdString(path);
  // One that could not be made is remembered, too, and costs little.
  kept_.insert(key, new QImage(image), std::max(static_cast<int>(image.sizeInBytes()), 256));
  makeNext();
  if (!image.isNull()) Q_EMIT ready(key);
}

}  // namespace tidewell::desktop
