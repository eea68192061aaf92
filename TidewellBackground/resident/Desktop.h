// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CompressionKit/batch/BackgroundCompressor.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"

/// What the resident application asks of the desktop and of the machine. Small interfaces, so that its logic
/// runs in tests with a virtual clock and without a bus. Everything here belongs to the main thread unless it
/// says otherwise.
namespace tidewell {

/// The main thread's event loop as seen by those who have something to run on it, with its clock.
class MainQueue {
 public:
  virtual ~MainQueue() = default;
  /// From any thread; actions run one at a time in the order they were posted.
  virtual void post(std::function<void()> action) = 0;
  virtual Date now() const = 0;
  /// Time goes on while the machine is suspended.
  virtual void after(double seconds, std::function<void()> action) = 0;
  /// Ends the loop when the current action has returned.
  virtual void terminate() = 0;
};

/// Threads for work that blocks.
class WorkerThreads {
 public:
  virtual ~WorkerThreads() = default;
  virtual void run(std::function<void()> work) = 0;
};

/// An item in the desktop's status area, there until it is destroyed.
class StatusItem {
 public:
  virtual ~StatusItem() = default;
  virtual void setTitle(const std::string& title) = 0;
  virtual void setToolTip(const std::string& toolTip) = 0;
};

class StatusBar {
 public:
  virtual ~StatusBar() = default;
  /// Never null: without a status area the item is merely invisible.
  virtual std::unique_ptr<StatusItem> makeStatusItem() = 0;
};

class Notifications {
 public:
  virtual ~Notifications() = default;
  virtual void postHistoryDidChange() = 0;
};

class TokenSource {
 public:
  virtual ~TokenSource() = default;
  /// The installation's command token, read anew on each call; empty when there is none.
  virtual std::string commandToken() = 0;
};

struct Desktop {
  MainQueue& mainQueue;
  WorkerThreads& workers;
  StatusBar& statusBar;
  Notifications& notifications;
  TokenSource& tokens;
};

/// The blocking operations of `BackgroundCompressor`, called on worker threads.
struct CompressorOperations {
  /// A stop of the token ends the batch early, with a result.
  std::function<BackgroundBatchResult(const std::vector<URL>&, const CompressionOptions&, const StopToken&)>
      compress;
  std::function<BackgroundCompressor::Maintenance()> maintainBackups;
};

}  // namespace tidewell
