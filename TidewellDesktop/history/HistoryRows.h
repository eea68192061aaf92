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
  bool isStale = true;  ///< the prospect may be another by now
};

/// One batch of a history.
struct HistoryBatch {
  struct Prospect {
    int restorable = 0;
    Date until;  ///< the first of them that no longer can be; of none, nothing
  };
  UUID id;
  Date newest;
  std::int64_t before = 0, after = 0;
  std::vector<HistoryRecord> records;  ///< newest first
  int shown = 0;                       ///< of them, as far as a view has fetched
  std::optional<Prospect> prospect = std::nullopt;
  bool isStale = true;
};

/// The rows of a history.
std::vector<HistoryBatch> batchesOf(const History& history);

HistoryRecord::Prospect prospectOf(const History& history, const History::Entry& entry, Date now);
/// Looks at those records alone for which it is not too late.
HistoryBatch::Prospect prospectOf(const History& history, const std::vector<const History::Entry*>& entries,
                                  Date now);

}  // namespace tidewell::desktop
