#include <algorithm>
#include <cmath>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {
namespace {

/// Committed records, oldest first: the only ones whose backups are ever removed.
std::vector<UndoRecord> committedOldestFirst(std::vector<UndoRecord> records) {
  std::erase_if(records, [](const auto& record) { return record.state != UndoRecord::State::committed; });
  std::ranges::stable_sort(records, [](const auto& a, const auto& b) { return a.createdAt < b.createdAt; });
  return records;
}

std::int64_t sizeOrZero(const URL& url) {
  try {
    return fileSize(url);
  } catch (const FileError&) {
    return 0;
  }
}

}  // namespace

void UndoStore::removeBackup(const UndoRecord& record) const noexcept {
  try {
    files::removeItemIfPossible(backupURL(record));
  } catch (...) {
  }
}

void UndoStore::cleanup(double maxAge, std::int64_t maxBytes, Date now) const noexcept {
  try {
    for (const auto& record : committedOldestFirst(records())) {
      if (now.since(record.createdAt) >= maxAge) removeBackup(record);
    }
    const auto remaining = committedOldestFirst(records());
    std::int64_t total = 0;
    for (const auto& record : remaining) total += sizeOrZero(backupURL(record));
    for (const auto& record : remaining) {
      if (total <= maxBytes) break;
      const std::int64_t size = sizeOrZero(backupURL(record));
      removeBackup(record);
      total -= size;
    }
  } catch (...) {  // out of memory: the next pass tries again
  }
}

std::optional<Date> UndoStore::nextBackupExpiration() const {
  std::optional<Date> earliest;
  for (const auto& record : records()) {
    if (record.state != UndoRecord::State::committed || !files::exists(backupURL(record))) continue;
    const Date expiry = record.createdAt.adding(backupRetention);
    if (!earliest || expiry < *earliest) earliest = expiry;
  }
  return earliest;
}

double BackupMaintenanceDelay::seconds(std::optional<Date> until, Date now, double idle) {
  if (!until) return idle;
  const double delay = until->since(now);
  if (!std::isfinite(delay)) return 60;
  return std::clamp(delay, 1.0, 3600.0);
}

}  // namespace tidewell
