// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "CompressionKit/batch/BackgroundBatchResult.h"
#include "CompressionKit/batch/Batch.h"
#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/queue/CompressionQueue.h"

namespace tidewell {

/// Runs the service's batches: what comes of them is told in the order of the files, at the end.
class BackgroundCompressor {
 public:
  /// What it compresses is remembered, for others; the service itself passes nothing over.
  explicit BackgroundCompressor(CompressionEngine engine,
                                CompressionQueue& queue = CompressionQueue::shared(),
                                std::unique_ptr<OutputMemory> memory = nullptr);

  /// Blocks until every file is done; several threads may run batches at once. Never throws for a file:
  /// every error becomes an item. The backup clean-up runs before and after. A stop of the token ends this
  /// batch early: what was queued fails with `Interrupted`.
  BackgroundBatchResult compress(const std::vector<URL>& urls, const CompressionOptions& compression = {},
                                 const StopToken& stop = {});

  struct Maintenance {
    std::optional<Date> deadline;  ///< when the next backup expires
    bool changed = false;          ///< backups were removed
    bool overdue = false;          ///< a backup that has expired could not be removed
  };
  /// One clean-up pass over the backups. Blocks on the disk.
  Maintenance maintainBackups();

  const CompressionEngine& engine() const { return batch_.engine(); }

 private:
  std::unique_ptr<OutputMemory> memory_;
  Batch batch_;
};

}  // namespace tidewell
