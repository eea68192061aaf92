// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <QThreadPool>
#include <QTimer>
#include <memory>
#include <string>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/models/BatchTraces.h"
#include "TidewellDesktop/models/DirectoryWatch.h"
#include "TidewellDesktop/models/FileListModel.h"
#include "TidewellDesktop/models/FollowedFiles.h"

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
  bool isFollowing() const { return files_.isFollowing(); }
  /// The batches with records that the service made of all that was ever started, as they were seen.
  const std::vector<UUID>& batches() const { return files_.batches(); }

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
  /// Nothing more will come of all that was started.
  void ended();

 private:
  void watchPlaces();
  void learnLocks(int start);
  void see(const std::string& directory, const std::string& name);
  void list(const std::string& directory);
  void follow(const URL& session);
  void schedule();
  void readNow();
  void take(const Traces& traces);
  void endStopped();
  void tell();

  const Places places_;
  const URL diagnostics_;
  FollowedFiles files_;
  std::vector<QString> gone_;  ///< processes
  std::unique_ptr<DirectoryWatch> watch_;
  TracesToRead wish_;
  bool reading_ = false;
  QTimer timer_, stopTimer_;
  QThreadPool pool_;
};

}  // namespace tidewell::desktop
