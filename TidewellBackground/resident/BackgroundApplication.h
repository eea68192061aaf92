// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "CompressionKit/batch/BackgroundBatchResult.h"
#include "CompressionKit/engine/CompressionOptions.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"
#include "TidewellBackground/resident/Desktop.h"

namespace tidewell {

/// The delegate of resident mode: turns opened URLs into batches, shows and stores their results, looks after
/// the backups while idle and ends the process when nothing is left to do.
///
/// Everything happens on the main thread. The object must outlive the running of the main queue and the
/// worker threads, which hold actions that refer to it.
class BackgroundApplication {
 public:
  BackgroundApplication(CompressorOperations compressor, Desktop desktop);
  BackgroundApplication(const BackgroundApplication&) = delete;
  BackgroundApplication& operator=(const BackgroundApplication&) = delete;

  void applicationDidFinishLaunching();
  /// The URLs of one open event: command URLs and file URLs. At most one batch for all of them.
  void open(const std::vector<URL>& urls, const CompressionOptions& options = {});
  /// The foreground application restored or deleted something.
  void undoDidChange();
  /// The machine woke from sleep.
  void workspaceDidWake();
  /// Ends the batches that run now early, each with its result. What is opened afterwards is not concerned.
  void stopBatches();
  /// Terminates as soon as no batch runs.
  void terminateAfterBatches();

  int activeBatches() const { return activeBatches_; }

 private:
  void enqueue(const std::vector<URL>& urls, const CompressionOptions& options);
  void finish(const BackgroundBatchResult& result);
  void scheduleIdleExit();

  /// No batch runs and nothing has re-armed the idle actions since `generation`.
  bool isIdle(std::uint64_t generation) const;
  void maintain(std::uint64_t generation);
  void maintenanceEnded(std::uint64_t generation, const BackgroundCompressor::Maintenance& outcome);

  CompressorOperations compressor_;
  Desktop desktop_;
  int activeBatches_ = 0;
  std::optional<StopSource> stop_;  ///< of all batches since the last stop; none before the first of them
  std::unique_ptr<StatusItem> statusItem_;
  std::uint64_t idleGeneration_ = 0;  ///< delayed idle actions of an earlier generation do nothing

  bool maintaining_ = false;  ///< a maintenance pass runs
  std::optional<std::uint64_t> waitingMaintenance_;
  bool terminating_ = false;
};

}  // namespace tidewell
