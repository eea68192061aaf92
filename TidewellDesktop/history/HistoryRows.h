// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "CompressionKit/batch/History.h"

namespace tidewell::desktop {

/// One record of a history, and what its files looked like when somebody last asked.
struct HistoryRecord {
  struct Prospect {
    History::State state = History::State::missing;
    bool hasBackup = false;
  };
  const History::Entry* entry = nullptr;  ///< of the model's history
  std::optional<Prospect> prospect = std::nullopt;
  bool isStale = true;    ///< the prospect may be another by now
  bool isWished = false;  ///< somebody waits for it

  const UUID& id() const { return entry->record.id; }
  /// It can still be put back at `now`, or there is a try; false while unknown.
  bool isRestorable(Date now) const;
};

/// One batch of a history.
struct HistoryBatch {
  struct Prospect {
    int restorable = 0;
    Date until;  ///< when the first of them no longer can be; of none, nothing
  };
  UUID id;
  int row = 0;  ///< in the model
  Date newest;
  std::int64_t before = 0, after = 0;  ///< a conversion that grew counts only where nothing else does
  std::vector<HistoryRecord> records;  ///< newest first
  std::optional<Prospect> prospect = std::nullopt;
  bool isStale = true, isWished = false;
  bool isOpen = false;  ///< somebody asked for a record's prospect
};

/// Shared with those who look at files of it meanwhile; but only the model reads or changes it.
using HistoryBatches = std::vector<std::shared_ptr<HistoryBatch>>;

/// Somebody waits for the prospect of a batch, or of one record.
struct HistoryWish {
  std::shared_ptr<HistoryBatch> batch;
  std::optional<UUID> record = std::nullopt;
};

/// The rows of a history, which must outlive them.
HistoryBatches batchesOf(const History& history);

/// Look at the files; any thread.
HistoryRecord::Prospect prospectOf(const History& history, const History::Entry& entry, Date now);
HistoryBatch::Prospect prospectOf(const History& history, const std::vector<const History::Entry*>& entries,
                                  Date now);

/// One step from a list of rows to the next.
struct RowChange {
  bool isInsertion = false;
  std::size_t at = 0, count = 0;  ///< where, once the steps before are done

  bool operator==(const RowChange&) const = default;
};

/// The steps from `old` to `fresh`, front to back. Nothing where rows changed places, or for so many steps
/// that beginning anew is cheaper.
std::optional<std::vector<RowChange>> rowChanges(const std::vector<UUID>& old,
                                                 const std::vector<UUID>& fresh);

}  // namespace tidewell::desktop
