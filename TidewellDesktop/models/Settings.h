// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <QString>
#include <QThreadPool>

#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell::desktop {

/// What the user decided for this window. It lies in a group of its own of the installation's settings, whose
/// other lines stay as they are.
class Settings : public QObject {
  Q_OBJECT

 public:
  struct Values {
    bool keepMetadata = true;
    bool keepTimes = true;
    bool notifyAtEnd = true;
    bool compressAtOnce = false;  ///< files that are opened are compressed without asking
    bool operator==(const Values&) const = default;
  };

  /// Reads the file; what is missing there or cannot be read has its default.
  explicit Settings(URL file = locations::settingsFile(), QObject* parent = nullptr);
  /// Waits until all is written.
  ~Settings() override;

  const Values& values() const { return values_; }
  /// Takes effect at once, and is written in the background.
  void set(const Values& values);

 Q_SIGNALS:
  void changed();
  /// The values could not be written: they hold as long as the window lives.
  void saveFailed(const QString& words);

 private:
  const URL file_;
  Values values_;
  QThreadPool pool_;
};

}  // namespace tidewell::desktop
