// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <QThreadPool>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"
#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

/// Finds the pictures that files and folders name, and which of them were compressed before: in the
/// background, one call after the other.
class FileIntake : public QObject {
  Q_OBJECT

 public:
  struct Options {
    bool again = false;        ///< also what was compressed before is to be compressed
    bool keepMetadata = true;  ///< with which it would be
  };

  /// `memory` (without: the user's) knows what was compressed before, by the tools in that directory.
  explicit FileIntake(std::optional<URL> memory = std::nullopt, URL tools = locations::toolsDirectory(),
                      QObject* parent = nullptr);
  /// Waits for the file that is looked at.
  ~FileIntake() override;

  /// Rows come with `found`: waiting, or compressed before; what cannot be used is skipped or failed, with
  /// the reason.
  void add(std::vector<URL> named, const Options& options);
  void add(std::vector<URL> named, bool again = false) { add(std::move(named), Options{.again = again}); }
  /// Ends what was added so far: nothing of it is `found` any more. Each `finished` still comes.
  void stop();
  bool isRunning() const { return running_ > 0; }

 Q_SIGNALS:
  void found(const std::vector<tidewell::desktop::FileRow>& rows);
  /// Once for each `add`.
  void finished();

 private:
  void walk(const std::vector<URL>& named, const Options& options, int generation, const StopToken& stop);

  OutputMemory memory_;
  const URL tools_;
  std::unique_ptr<StopSource> stop_;
  int generation_ = 0;  ///< of what is added; what was stopped is of an earlier one
  int running_ = 0;
  QThreadPool pool_;
};

}  // namespace tidewell::desktop
