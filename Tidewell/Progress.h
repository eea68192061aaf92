// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "CompressionKit/batch/FileReport.h"
#include "CompressionKit/batch/FolderWalk.h"
#include "CompressionKit/platform/Stop.h"
#include "Tidewell/Terminal.h"

namespace tidewell {

/// How much lies ahead: the same files as a walk finds, counted beside the work on a thread of its own.
class Survey {
 public:
  struct Sum {
    std::int64_t files = 0;
    std::int64_t bytes = 0;
    bool complete = false;
  };

  /// Takes over the paths and reads directories; what fails there is the walk's to tell.
  Survey(PathSource paths, WalkOptions options);
  Survey(const Survey&) = delete;
  Survey& operator=(const Survey&) = delete;
  /// Ends the counting.
  ~Survey();

  Sum sum() const;
  /// Whether there are more than `bytes`, as far as counting tells within this time.
  bool exceeds(std::int64_t bytes, std::chrono::milliseconds time) const;

 private:
  void count(FolderWalk walk);

  StopSource stop_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Sum sum_;
  std::thread thread_;
};

/// What of a batch is done, and the line about it at the foot of the terminal. Thread-safe.
class Progress {
 public:
  struct State {
    std::int64_t files = 0;
    std::int64_t savedBytes = 0;
    std::optional<std::int64_t> totalFiles;  ///< once it is known
    std::optional<double> secondsLeft;       ///< guessed by the bytes that are done
    std::string current;                     ///< the path of a file at work
  };

  /// Both must outlive this; without a survey there is no end in sight.
  Progress(Terminal& terminal, const Survey* survey) : terminal_(terminal), survey_(survey) {}

  void started(const Found& found);
  /// Another file is done.
  void finished(const FileReport& report);
  State state() const;

 private:
  using Clock = std::chrono::steady_clock;
  State stateLocked() const;
  void drawLocked();

  Terminal& terminal_;
  const Survey* survey_;
  mutable std::mutex mutex_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point drawn_{};
  std::int64_t files_ = 0;
  std::int64_t bytes_ = 0;
  std::int64_t savedBytes_ = 0;
  std::string current_;
};

}  // namespace tidewell
