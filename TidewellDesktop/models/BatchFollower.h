// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <QThreadPool>
#include <QTimer>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/models/BatchTraces.h"
#include "TidewellDesktop/models/DirectoryWatch.h"
#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

/// Tells what becomes of files that the service was given, out of what it writes: records of the undo store
/// and reports, as they appear, and at the end the result of the batch. Nothing is polled.
class BatchFollower : public QObject {
  Q_OBJECT

 public:
  /// Where the service leaves what is read.
  struct Places {
    UndoStore store = UndoStore();
    URL latestResult = locations::latestResult();
    URL locks = locations::compressionLocks();
  };

  explicit BatchFollower(QObject* parent = nullptr) : BatchFollower(Places{}, parent) {}
  explicit BatchFollower(Places places, QObject* parent = nullptr);
  /// Waits for what is being read.
  ~BatchFollower() override;

  /// Call it before the service is asked, with the moment before that. Several batches may run at once.
  void start(std::vector<FileRow> files, Date startedAt = Date::now());
  bool isFollowing() const { return unsettled_ > 0; }
  /// The batches with records that the service made of all that was ever started, as they were seen.
  const std::vector<UUID>& batches() const { return batches_; }

  // For the signals of `ServiceClient`. Each start is answered by `taken` or `refused`, in their order.
  /// For `opened`: that process has the files.
  void taken(const QString& process);
  /// For `openFailed`: nothing will come of the files.
  void refused(const QString& why);
  /// For `serviceVanished`: what that process did not finish failed.
  void vanished(const QString& process);
  /// For `stopped`: what was taken by then and is not told of soon was not done.
  void stopped();
  /// For `historyDidChange`.
  void readLatestResult();

 Q_SIGNALS:
  /// Rows as they are now, to be given to the list. One that waits was stopped before it was done.
  void updated(const std::vector<tidewell::desktop::FileRow>& rows);
  void batchSeen(const tidewell::UUID& batch);
  /// Nothing more will come of all that was started.
  void ended();

 private:
  struct Followed {
    FileRow row;
    Date startedAt;
    std::chrono::steady_clock::time_point startTicks;
    int number = 0;  ///< of the start
    QString takenBy = {};
    bool settled = false;  ///< nothing more will be told of it
  };

  void watchPlaces();
  void learnLocks(std::size_t first);
  void see(const std::string& directory, const std::string& name);
  void list(const std::string& directory);
  void follow(const URL& session);
  void schedule();
  void readNow();

  /// The followed file that may be meant by a trace on `path` from this moment.
  template <typename Condition>
  Followed* find(const std::string& path, Date moment, Condition condition);
  void failAll(const std::vector<QString>& processes);
  void failStopped();
  void giveBack(Followed& file);
  void giveUp(Followed& file, const QString& whyFailed, const QString& whyNotDone);
  void take(const Traces& traces);
  void takeRecord(const UndoRecord& record);
  void takeReport(const Report& report);
  void takeResult(const BackgroundBatchResult& result);
  void takeItem(const BackgroundBatchResult::Item& item, Date finishedAt);
  void begin(std::size_t index);
  void settle(Followed& file);
  void fail(Followed& file, const QString& why);
  void change(const Followed& file);
  void tell();

  const Places places_;
  const URL diagnostics_;
  std::vector<Followed> followed_;
  std::size_t unsettled_ = 0;
  int started_ = 0, answered_ = 0, stopped_ = 0;  ///< numbers of the last starts of which that is so
  std::unordered_map<std::string, std::vector<std::size_t>> byPath_;  ///< as they are compared
  std::unordered_map<std::string, std::vector<std::size_t>> byLock_;
  std::unordered_set<std::string> begun_;  ///< locks, as long as it is not known whose
  std::vector<UUID> batches_;
  std::vector<std::size_t> changed_;
  std::vector<QString> gone_;  ///< processes
  std::unique_ptr<DirectoryWatch> watch_;
  TracesToRead wish_;
  bool reading_ = false;
  QTimer timer_, stopTimer_;
  QThreadPool pool_;
};

}  // namespace tidewell::desktop
