#pragma once

#include <mutex>
#include <optional>
#include <vector>

#include "CompressionKit/batch/BackgroundBatchResult.h"
#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/queue/CompressionQueue.h"

namespace tidewell {

/// Runs batches of files through the queue and the engine.
class BackgroundCompressor {
 public:
  explicit BackgroundCompressor(CompressionEngine engine,
                                CompressionQueue& queue = CompressionQueue::shared());

  /// Blocks until every file is done; several threads may run batches at once. Never throws for a file:
  /// every error becomes an item. The backup clean-up runs before and after.
  BackgroundBatchResult compress(const std::vector<URL>& urls);

  struct Maintenance {
    std::optional<Date> deadline;  ///< when the next backup expires
    bool changed = false;          ///< backups were removed
    bool overdue = false;          ///< a backup that has expired could not be removed
  };
  /// One clean-up pass over the backups. Blocks on the disk.
  Maintenance maintainBackups();

  const CompressionEngine& engine() const { return engine_; }

 private:
  UndoStore::Maintenance cleanUp();

  CompressionEngine engine_;
  CompressionQueue& queue_;
  std::mutex maintenance_;  ///< clean-up passes of this process run one at a time
};

}  // namespace tidewell
