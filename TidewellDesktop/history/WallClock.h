// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>
#include <memory>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/Descriptor.h"

namespace tidewell::desktop {

/// Tells when a moment of the wall clock has come. Time that the machine slept counts, and a clock that is
/// set is told at once: what people are told of times must be right then, too.
class WallClock : public QObject {
  Q_OBJECT

 public:
  explicit WallClock(QObject* parent = nullptr);

  /// In place of the moment before.
  void wakeAt(Date moment);
  void stop();

 Q_SIGNALS:
  /// The moment has come, or the clock was set. Once for each `wakeAt`.
  void woke();

 private:
  void read();

  Descriptor timer_;
  std::unique_ptr<QSocketNotifier> notifier_;
  QTimer fallback_;  ///< where the kernel gives no timer: looks often instead
};

}  // namespace tidewell::desktop
