// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <exception>
#include <numeric>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Leftovers.h"
#include "CompressionKit/undo/StoreSurvey.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {
namespace {

/// Committed records, oldest first: the only ones whose backups are ever removed.
std::vector<UndoRecord> committedOldestFirst(std::vector<UndoRecord> records) {
  std::erase_if(records, [](const auto& record) { return record.state != UndoRecord::State::committed; });
  std::ranges::stable_sort(records, [](const auto& a, const auto& b) { return a.createdAt < b.createdAt; });
  return records;
}

/// What stands where a backup should be. Of a link the link itself, and only a plain file has a size that
/// counts: what a link leads to is not ours, and takes no room of ours.
struct Entry {
  explicit Entry(const URL& url) {
    struct stat info {};
    isThere = lstat(url.path().c_str(), &info) == 0;
    isAbsent = !isThere && errno == ENOENT;
    if (isThere && S_ISREG(info.st_mode)) bytes = info.st_size;
  }
  bool isThere;
  bool isAbsent;  ///< for certain: neither is true when the entry cannot be asked for
  std::int64_t bytes = 0;
};

/// True when there was a backup and it is gone.
bool remove(const UndoStore& store, const UndoRecord& record) {
  const URL backup = store.backupURL(record);
  if (!Entry(backup).isThere) return false;
  store.removeBackup(record);
  return Entry(backup).isAbsent;
}

bool trimToSize(const UndoStore& store, const std::vector<UndoRecord>& oldestFirst, std::int64_t maxBytes) {
  // Asked once: a size that could be read for the total only would make one backup more go than is due.
  std::vector<std::int64_t> sizes;
  for (const auto& record : oldestFirst) sizes.push_back(Entry(store.backupURL(record)).bytes);
  std::int64_t total = std::accumulate(sizes.begin(), sizes.end(), std::int64_t{0});
  bool changed = false;
  for (std::size_t i = 0; i < sizes.size() && total > maxBytes; ++i) {
    total -= sizes[i];
    changed = remove(store, oldestFirst[i]) || changed;
  }
  return changed;
}

/// A name that `prepare` gives: the record's identity and an extension in lower case.
bool isBackupName(std::string_view name) {
  constexpr std::size_t identity = 36;
  if (name.size() <= identity || name[identity] != '.') return false;
  const auto extension = name.substr(identity);
  return UUID::isCanonical(name.substr(0, identity)) && asciiLowercased(extension) == extension;
}

/// Nobody's file, left by a process that ended between its making and its record's.
bool isLeftover(const StoreSurvey& survey, const StoreSurvey::Session& session, const std::string& name,
                Date moment) {
  if (survey.isNamed(session, name)) return false;
  if (isBackupName(name)) {
    // Asked once more: a record may have been written since the survey.
    if (!Entry(session.url.appending(name.substr(0, name.find('.')) + ".json")).isAbsent) return false;
  } else if (!files::isTemporaryName(name)) {
    return false;
  }
  return files::isUntouchedSince(moment, session.url.appending(name), files::EntryKind::regularFile);
}

void sweepSession(const StoreSurvey& survey, const StoreSurvey::Session& session, Date moment) {
  if (!session.isOurs || !session.isReadable) return;
  // Before what is removed here changes it.
  const bool isOld = files::isUntouchedSince(moment, session.url, files::EntryKind::directory);
  for (const auto& name : session.others) {
    if (isLeftover(survey, session, name, moment)) unlink(session.url.appending(name).path().c_str());
  }
  if (isOld && !session.hasRecords) rmdir(session.url.path().c_str());  // only when it is empty
}

void sweep(const UndoStore& store, const StoreSurvey& survey, Date moment) {
  for (const auto& session : survey.sessions()) sweepSession(survey, session, moment);
  for (const URL& file : survey.temporariesInRoot()) {
    if (files::isUntouchedSince(moment, file, files::EntryKind::regularFile)) unlink(file.path().c_str());
  }
  files::removeTemporaries(store.diagnosticsDirectory(), moment);
}

}  // namespace

void UndoStore::removeBackup(const UndoRecord& record) const noexcept {
  try {
    files::removeItemIfPossible(backupURL(record));
  } catch (...) {
  }
}

StoreSurvey UndoStore::survey() const {
  StoreSurvey survey(root_);
  if (survey.hasUnnamedFiles()) survey.replaceRecords(scanRecords(false));
  return survey;
}

UndoStore::Maintenance UndoStore::maintain(double maxAge, std::int64_t maxBytes, Date now) const noexcept {
  Maintenance pass;
  try {
    StoreSurvey found = survey();
    const auto records = committedOldestFirst(found.takeRecords());
    const auto isDue = [&](const UndoRecord& record) { return now.since(record.createdAt) >= maxAge; };
    for (const auto& record : records) {
      if (isDue(record)) pass.changed = remove(*this, record) || pass.changed;
    }
    pass.changed = trimToSize(*this, records, maxBytes) || pass.changed;
    for (const auto& record : records) {
      if (!files::exists(backupURL(record))) continue;
      pass.overdue = pass.overdue || isDue(record);
      if (!pass.nextExpiration) pass.nextExpiration = record.createdAt.adding(backupRetention);
    }
    sweep(*this, found, now.adding(-backupRetention));
  } catch (...) {  // out of memory or of descriptors: the next pass tries again
  }
  return pass;
}

void UndoStore::cleanup(double maxAge, std::int64_t maxBytes, Date now) const noexcept {
  maintain(maxAge, maxBytes, now);
}

std::optional<Date> UndoStore::nextBackupExpiration() const {
  try {
    for (const auto& record : committedOldestFirst(survey().takeRecords())) {
      if (files::exists(backupURL(record))) return record.createdAt.adding(backupRetention);
    }
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

double BackupMaintenanceDelay::seconds(std::optional<Date> until, Date now, double idle) {
  if (!until) return idle;
  const double delay = until->since(now);
  if (!std::isfinite(delay)) return 60;
  return std::clamp(delay, 1.0, 3600.0);
}

}  // namespace tidewell
