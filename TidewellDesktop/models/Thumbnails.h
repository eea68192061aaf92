// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QByteArray>
#include <QCache>
#include <QImage>
#include <QObject>
#include <deque>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "CompressionKit/platform/URL.h"

namespace tidewell::desktop {

/// Small pictures of files, made in the background and kept as far as memory allows.
class Thumbnails : public QObject {
  Q_OBJECT

 public:
  /// Pictures of at most `pixels` on their longer side, in at most `bytes` of memory together.
  explicit Thumbnails(int pixels, int bytes = 32 << 20, QObject* parent = nullptr);
  /// Waits for those that are being made.
  ~Thumbnails() override;

  /// What is to be seen now, the most urgent first. Earlier wishes that are not among these are dropped.
  void want(const std::vector<URL>& visible);
  /// The picture, or a null one where there is none (yet). Costs nothing.
  QImage image(const QByteArray& path) const;

 Q_SIGNALS:
  void ready(const QByteArray& path);

 private:
  void makeNext();
  void keep(const std::string& path, const QImage& image);

  const int pixels_;
  mutable QCache<QByteArray, QImage> kept_;
  std::deque<URL> wishes_;
  std::map<std::string, std::future<void>> underWay_;
};

}  // namespace tidewell::desktop
