#pragma once

#include <QObject>
#include <QThreadPool>
#include <QTimer>
#include <chrono>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

/// Tells what becomes of files that the service was given, out of what it writes: records of the undo store
/// and reports, as they appear, and at the end the result of the batch. Nothing is polled.
class BatchFollower : public QObject {
  Q_OBJECT

 public:
  explicit BatchFollower(UndoStore store = UndoStore(), URL latestResult = locations::latestResult(),
                         QObject* parent = nullptr);
  /// Waits for what is being read.
  ~BatchFollower() override;

  /// Call it before the service is asked, with the moment before that. Several batches may run at once.
  void start(std::vector<FileRow> files, Date startedAt = Date::now());
  /// The service did not take the files of the last `start`.
  void abandon(const QString& why);
  bool isFollowing() const;
  /// The batches that the service made of what was started, in the order in which they were seen.
  const std::vector<UUID>& batches() const { return batches_; }

 public Q_SLOTS:
  /// For the service's `historyDidChange`.
  void readLatestResult();
  /// For the end of its process: files that it did not finish failed.
  void serviceVanished();

 Q_SIGNALS:
  /// Rows as they are now, to be given to the list.
  void updated(const std::vector<tidewell::desktop::FileRow>& rows);
  void batchSeen(const tidewell::UUID& batch);
  /// Every file of all that was started is done.
  void ended();
};

}  // namespace tidewell::desktop
