// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QString>
#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "TidewellDesktop/models/BatchTraces.h"
#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

/// Files that the service was given, and what the traces of its work say of each. A file is settled once
/// nothing more will be told of it. Several starts may be followed at once; each is answered by `taken` or
/// `refused`, in their order.
class FollowedFiles {
 public:
  /// Follows these from now on. Returns the number of the start; no other has it. Where all before was
  /// settled, that is forgotten.
  int start(std::vector<FileRow> files, Date startedAt);
  bool isFollowing() const { return unsettled_ > 0; }
  /// No trace from before this moment says anything of the files, by the clock as it stands now.
  Date earliestStart() const;
  /// The batches with records that were made of all that was ever started, as they were seen.
  const std::vector<UUID>& batches() const { return batches_; }

  std::vector<URL> filesOf(int start) const;
  /// The names of the locks of `filesOf(start)`, in their order. Nothing where they were forgotten since.
  void learnLocks(int start, const std::vector<std::string>& names);
  /// The lock of a file was opened; it need not be known yet whose it is.
  void begin(const std::string& lock);

  void taken(const QString& process);
  void refused(const QString& why);
  /// What was taken so far is being stopped.
  void stopped();
  /// Nothing more comes of what was being stopped: it waits again, or failed where something was begun.
  void endStopped();
  /// Nothing more comes of what these processes took.
  void endTaken(const std::vector<QString>& processes);

  void take(const Traces& traces);

  bool hasChanges() const { return !changed_.empty(); }
  /// The rows that changed since this was called last, as they are now. One that waits was stopped before it
  /// was done.
  std::vector<FileRow> takeChanges();

 private:
  struct Followed {
    FileRow row;
    Date startedAt;
    std::chrono::steady_clock::time_point startTicks;
    int number = 0;  ///< of the start
    QString takenBy = {};
    bool settled = false;

    /// When it was started as the wall clock has it now, which may have been set back meanwhile.
    Date startNow() const;
  };

  void forget();
  /// The first of a start, or the end.
  std::vector<Followed>::const_iterator firstOf(int start) const;
  /// The followed file that may be meant by a trace on `path` from this moment.
  template <typename Condition>
  Followed* find(const std::string& path, Date moment, Condition condition);
  void takeRecord(const UndoRecord& record);
  void takeReport(const Report& report);
  void takeResult(const BackgroundBatchResult& result);
  void takeItem(const BackgroundBatchResult::Item& item, Date finishedAt);
  void begin(Followed& file);
  void giveUp(Followed& file, const QString& whyFailed, const QString& whyNotDone);
  void giveBack(Followed& file);
  void fail(Followed& file, const QString& why);
  void settle(Followed& file);
  void change(const Followed& file);

  std::vector<Followed> followed_;  ///< by start
  std::size_t unsettled_ = 0;
  int started_ = 0, answered_ = 0, stopped_ = 0;  ///< numbers of the last starts of which that is so
  std::unordered_map<std::string, std::vector<std::size_t>> byPath_;  ///< as they are compared
  std::unordered_map<std::string, std::vector<std::size_t>> byLock_;
  std::unordered_set<std::string> begun_;  ///< locks, as long as it is not known whose
  std::vector<UUID> batches_;
  std::vector<std::size_t> changed_;
};

}  // namespace tidewell::desktop
