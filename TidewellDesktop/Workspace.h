// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QDBusConnection>
#include <QObject>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/history/HistoryModel.h"
#include "TidewellDesktop/history/UndoWorker.h"
#include "TidewellDesktop/models/BatchFollower.h"
#include "TidewellDesktop/models/FileIntake.h"
#include "TidewellDesktop/models/FileListModel.h"
#include "TidewellDesktop/models/Settings.h"
#include "TidewellDesktop/service/ServiceClient.h"

namespace tidewell::desktop {

/// What the window works on, and all that it does with it: the list, the service and the undo store brought
/// together. Knows no widget.
class Workspace : public QObject {
  Q_OBJECT

 public:
  explicit Workspace(const QDBusConnection& connection, QObject* parent = nullptr);

  FileListModel& files() { return files_; }
  ServiceClient& service() { return service_; }
  Settings& settings() { return settings_; }
  UndoWorker& undo() { return undo_; }
  HistoryModel& history() { return history_; }
  const UndoStore& store() const { return store_; }

  /// Takes the pictures of files and folders into the list. They are compressed when `compress` is called, or
  /// at once where the user decided so. With `again`, also those that were compressed before.
  void add(std::vector<URL> named, bool again = false);
  /// Gives the service what waits.
  void compress();
  void stop();
  /// Empties the list. Nothing while the service works on it.
  void clear();
  /// Puts the originals of these rows back.
  void restore(const std::vector<FileRow>& rows);
  /// The same for all that the last run made.
  void undoBatch();
  /// Nothing where `run` is no longer the last one.
  void undoBatch(int run);
  int run() const { return run_; }
  /// Reads the record of a row, and calls back with it unless it is gone, which `problem` tells.
  void withRecord(const FileRow& row, std::function<void(const UndoRecord&)> use);

  bool isLooking() const { return intake_.isRunning(); }
  bool isRunning() const { return follower_.isFollowing(); }
  bool isStopping() const { return isStopping_; }
  /// Originals are being put back, or are about to be.
  bool isUndoing() const { return findingRecords_ > 0 || undo_.isBusy(); }
  bool canUndoBatch() const;
  /// What waits for the user's word.
  std::int64_t waitingFiles() const { return static_cast<std::int64_t>(waiting_.size()); }
  std::int64_t waitingBytes() const { return waitingBytes_; }

 Q_SIGNALS:
  /// Another answer of one of the questions above.
  void changed();
  /// Rows were added for files that the user named.
  void filesAdded();
  void problem(const QString& words);
  /// All that was asked of the service is done.
  void batchEnded();

 private:
  void connectService();
  void takeFound(std::vector<FileRow> rows);
  void finishLooking();
  void update(const std::vector<FileRow>& rows);
  void wait(const FileRow& row);
  void finishBatch();
  bool isOfLastRun(const FileRow& row) const;
  void countUndoable();
  void forgetUndoable(const std::vector<FileRow>& replacements);
  void lookAfterRecords();

  UndoStore store_;
  ServiceClient service_;
  Settings settings_;
  FileListModel files_;
  BatchFollower follower_;
  FileIntake intake_;
  UndoWorker undo_;
  HistoryModel history_;

  std::unordered_set<std::string> waiting_;  ///< paths that the service was not given yet
  std::int64_t waitingBytes_ = 0;
  std::unordered_set<std::string> given_;  ///< paths that the service works on
  std::size_t batchesBefore_ = 0;          ///< that were seen before the last run
  int run_ = 0;                            ///< the last one; they are counted
  bool isStopping_ = false;
  int findingRecords_ = 0;     ///< that are to be restored
  std::int64_t undoable_ = 0;  ///< rows of the last run that can be taken back
};

}  // namespace tidewell::desktop
