// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/history/HistoryRows.h"

#include <algorithm>
#include <tuple>

#include "CompressionKit/platform/Files.h"

namespace tidewell::desktop {
namespace {

/// A set that is cheap to make.
std::vector<UUID> sorted(std::vector<UUID> ids) {
  std::ranges::sort(ids);
  return ids;
}

void extend(std::vector<RowChange>& changes, bool isInsertion, std::size_t at) {
  if (!changes.empty() && changes.back().isInsertion == isInsertion &&
      at == changes.back().at + (isInsertion ? changes.back().count : 0)) {
    ++changes.back().count;
  } else {
    changes.push_back({isInsertion, at, 1});
  }
}

}  // namespace

bool HistoryRecord::isRestorable(Date now) const {
  if (!prospect || !prospect->hasBackup || now >= entry->restorableUntil()) return false;
  return prospect->state != History::State::edited && prospect->state != History::State::expired;
}

/// The original of a conversion stays, so a larger picture beside it takes nothing from what others saved.
void addSizes(HistoryBatch& batch) {
  const auto grew = [](const HistoryRecord& row) {
    return row.entry->record.replacementBytes > row.entry->record.originalBytes;
  };
  const bool allGrew = std::ranges::all_of(batch.records, grew);
  for (const auto& row : batch.records) {
    if (grew(row) && !allGrew) continue;
    batch.before += row.entry->record.originalBytes;
    batch.after += row.entry->record.replacementBytes;
  }
}

HistoryBatches batchesOf(const History& history) {
  HistoryBatches batches;
  for (const auto& entry : history.entries()) {
    const UndoRecord& record = entry.record;
    if (batches.empty() || batches.back()->id != record.sessionID) {
      batches.push_back(std::make_shared<HistoryBatch>());
      batches.back()->id = record.sessionID;
      batches.back()->newest = record.createdAt;
    }
    HistoryBatch& batch = *batches.back();
    batch.records.push_back({.entry = &entry});
  }
  for (auto& batch : batches) {
    addSizes(*batch);
    // The same every time, whatever order a folder is listed in.
    std::ranges::sort(batch->records, [](const HistoryRecord& a, const HistoryRecord& b) {
      const UndoRecord &one = a.entry->record, &other = b.entry->record;
      return std::tie(other.createdAt, one.id) < std::tie(one.createdAt, other.id);
    });
  }
  return batches;
}

HistoryRecord::Prospect prospectOf(const History& history, const History::Entry& entry, Date now) {
  return {history.state(entry, now), files::exists(history.store().backupURL(entry.record))};
}

HistoryBatch::Prospect prospectOf(const History& history, const std::vector<const History::Entry*>& entries,
                                  Date now) {
  HistoryBatch::Prospect prospect;
  for (const auto* entry : entries) {
    if (now >= entry->restorableUntil()) continue;  // not worth a look
    const HistoryRecord record{.entry = entry, .prospect = prospectOf(history, *entry, now)};
    if (!record.isRestorable(now)) continue;
    const Date until = entry->restorableUntil();
    prospect.until = prospect.restorable == 0 ? until : std::min(prospect.until, until);
    ++prospect.restorable;
  }
  return prospect;
}

std::optional<std::vector<RowChange>> rowChanges(const std::vector<UUID>& old,
                                                 const std::vector<UUID>& fresh) {
  constexpr std::size_t mostSteps = 200;
  // Most of a long list stays as it is: only the part between is looked through.
  const auto [left, right] = std::ranges::mismatch(old, fresh);
  auto oldEnd = old.end(), freshEnd = fresh.end();
  while (oldEnd != left && freshEnd != right && *(oldEnd - 1) == *(freshEnd - 1)) --oldEnd, --freshEnd;
  const std::vector<UUID> before = sorted({left, oldEnd}), after = sorted({right, freshEnd});
  std::vector<RowChange> changes;
  auto at = static_cast<std::size_t>(right - fresh.begin());
  for (auto was = left, is = right; was != oldEnd || is != freshEnd;) {
    if (was != oldEnd && is != freshEnd && *was == *is) {
      ++was, ++is, ++at;
    } else if (was != oldEnd && !std::ranges::binary_search(after, *was)) {
      extend(changes, false, at);
      ++was;
    } else if (is != freshEnd && !std::ranges::binary_search(before, *is)) {
      extend(changes, true, at);
      ++is, ++at;
    } else {
      return std::nullopt;
    }
    if (changes.size() > mostSteps) return std::nullopt;
  }
  return changes;
}

}  // namespace tidewell::desktop
