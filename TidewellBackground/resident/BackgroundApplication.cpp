// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/BackgroundApplication.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <string>
#include <unordered_set>
#include <utility>

#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Leftovers.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellBackground/resident/ByteCount.h"
#include "TidewellBackground/resident/CommandURL.h"

namespace tidewell {
namespace {

constexpr double idleSeconds = 12;

/// After a pass that could not remove what was due: it would hardly fare better a second later.
constexpr double overdueSeconds = 3600;

constexpr const char* compressingTitle = "潮汐井：压缩中…";

std::string summary(const BackgroundBatchResult& result) {
  return "已压缩 " + std::to_string(result.replacedCount()) + " 张，跳过 " +
         std::to_string(result.skippedCount()) + " 张，失败 " + std::to_string(result.failedCount()) + " 张";
}

std::string endTitle(const BackgroundBatchResult& result) {
  if (result.failedCount() != 0) return "潮汐井：" + std::to_string(result.failedCount()) + " 张失败";
  return "潮汐井：节省 " + byteCountText(result.savedBytes());
}

void save(const BackgroundBatchResult& result, Date now) {
  try {
    const URL directory = locations::backgroundDirectory();
    files::createDirectories(directory);
    files::removeTemporaries(directory, now.adding(-UndoStore::backupRetention));
    files::writeAtomically(locations::latestResult(), result.json());
  } catch (const std::exception& error) {
    // "<3>" is the journal's prefix for errors.
    const std::string line = "<3>Tidewell 后台结果保存失败：" + localizedDescription(error) + "\n";
    std::fputs(line.c_str(), stderr);
  }
}

}  // namespace

BackgroundApplication::BackgroundApplication(CompressorOperations compressor, Desktop desktop)
    : compressor_(std::move(compressor)), desktop_(desktop) {}

void BackgroundApplication::applicationDidFinishLaunching() {
  scheduleIdleExit();
}

void BackgroundApplication::open(const std::vector<URL>& urls, const CompressionOptions& options) {
  std::vector<URL> files;
  for (const URL& url : urls) {
    if (url.isFileURL()) {
      files.push_back(url);
    } else {
      std::ranges::move(filesOfCommand(url, desktop_.tokens), std::back_inserter(files));
    }
  }
  enqueue(files, options);
}

void BackgroundApplication::undoDidChange() {
  if (activeBatches_ == 0) scheduleIdleExit();
}

void BackgroundApplication::workspaceDidWake() {
  scheduleIdleExit();
}

void BackgroundApplication::stopBatches() {
  if (stop_) stop_->requestStop();
  stop_.reset();
}

void BackgroundApplication::terminateAfterBatches() {
  terminating_ = true;
  if (activeBatches_ == 0) desktop_.mainQueue.terminate();
}

void BackgroundApplication::enqueue(const std::vector<URL>& urls, const CompressionOptions& options) {
  std::vector<URL> files;
  std::unordered_set<std::string> kept;
  for (const URL& url : urls) {
    if (url.isFileURL() && ImageKind::from(url) && kept.insert(url.standardized().path()).second) {
      files.push_back(url);
    }
  }
  if (files.empty()) return;

  ++activeBatches_;
  ++idleGeneration_;
  if (!statusItem_) statusItem_ = desktop_.statusBar.makeStatusItem();
  statusItem_->setTitle(compressingTitle);
  statusItem_->setToolTip("后台压缩 " + std::to_string(files.size()) + " 张图片");

  if (!stop_) stop_.emplace();
  desktop_.workers.run([this, files = std::move(files), options, stop = stop_->token()] {
    auto result = compressor_.compress(files, options, stop);
    desktop_.mainQueue.post([this, result = std::move(result)] { finish(result); });
  });
}

void BackgroundApplication::finish(const BackgroundBatchResult& result) {
  --activeBatches_;
  if (statusItem_) {
    statusItem_->setTitle(activeBatches_ > 0 ? compressingTitle : endTitle(result));
    statusItem_->setToolTip(summary(result));
  }
  save(result, desktop_.mainQueue.now());
  desktop_.notifications.postHistoryDidChange();
  if (activeBatches_ > 0) return;
  scheduleIdleExit();
  if (terminating_) desktop_.mainQueue.terminate();
}

void BackgroundApplication::scheduleIdleExit() {
  const auto generation = ++idleGeneration_;
  desktop_.mainQueue.after(idleSeconds, [this, generation] {
    if (isIdle(generation)) statusItem_.reset();
  });
  maintain(generation);
}

bool BackgroundApplication::isIdle(std::uint64_t generation) const {
  return activeBatches_ == 0 && idleGeneration_ == generation;
}

// Passes run one at a time. While one runs only the newest request waits: the outcome of an older one would
// be discarded anyway.
void BackgroundApplication::maintain(std::uint64_t generation) {
  if (terminating_) return;
  if (maintaining_) {
    waitingMaintenance_ = generation;
    return;
  }
  maintaining_ = true;
  desktop_.workers.run([this, generation] {
    const auto outcome = compressor_.maintainBackups();
    desktop_.mainQueue.post([this, generation, outcome] {
      maintaining_ = false;
      maintenanceEnded(generation, outcome);
      if (const auto waiting = std::exchange(waitingMaintenance_, std::nullopt)) maintain(*waiting);
    });
  });
}

void BackgroundApplication::maintenanceEnded(std::uint64_t generation,
                                             const BackgroundCompressor::Maintenance& outcome) {
  if (!isIdle(generation)) return;
  if (outcome.changed) desktop_.notifications.postHistoryDidChange();
  const double delay = outcome.overdue ? overdueSeconds
                                       : BackupMaintenanceDelay::seconds(
                                             outcome.deadline, desktop_.mainQueue.now(), idleSeconds);
  desktop_.mainQueue.after(delay, [this, generation, pending = outcome.deadline.has_value()] {
    if (!isIdle(generation)) return;
    if (pending) {
      scheduleIdleExit();
    } else {
      desktop_.mainQueue.terminate();
    }
  });
}

}  // namespace tidewell
