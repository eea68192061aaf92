// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/History.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <iterator>
#include <map>
#include <unordered_map>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// Seconds by which the clocks of two file systems may differ, where one is a server's.
constexpr std::int64_t clockSlack = 2'000'000'000;

/// What stands under a name of a record.
struct Found {
  explicit Found(const URL& url) {
    struct stat info {};
    isThere = lstat(url.path().c_str(), &info) == 0;
    isFile = isThere && S_ISREG(info.st_mode);
    bytes = info.st_size;
    changedAt = std::int64_t{info.st_ctim.tv_sec} * 1'000'000'000 + info.st_ctim.tv_nsec;
    device = info.st_dev;
  }
  bool isThere = false, isFile = false;
  std::int64_t bytes = 0, changedAt = 0;
  std::uint64_t device = 0;

  bool isUntouchedSince(const History::Entry& entry) const {
    return changedAt <= entry.writtenAt + (device == entry.device ? 0 : clockSlack);
  }
};

/// Before its commit a replacement may or may not have happened, and what stands there was moved after the
/// record was written: only the size can tell.
History::State stateOfPrepared(const UndoRecord& record, const Found& original) {
  using State = History::State;
  if (!original.isThere) return State::missing;
  const bool isKnown = original.bytes == record.originalBytes ||
                       (!record.convertedPath && original.bytes == record.replacementBytes);
  return original.isFile && isKnown ? State::interrupted : State::edited;
}

std::string lowercasedHex(std::string_view text) {
  std::string digits;
  for (const char c : text) digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return digits;
}

/// Could be the beginning of an ID.
bool isShortenedID(std::string_view text) {
  constexpr std::size_t shortest = 4, whole = 36;
  return text.size() >= shortest && text.size() <= whole &&
         std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0 || c == '-'; });
}

/// Where files lie, in one spelling however their folders are reached: a link may have been on the way when a
/// file was recorded, or be on it now. What is gone keeps the path that it had.
class Places {
 public:
  std::string of(const std::string& path) {
    const URL url = URL::file(path).standardized();
    const URL parent = url.deletingLastPathComponent();
    const auto [folder, isNew] = folders_.try_emplace(parent.path());
    if (isNew) folder->second = realPath(parent);
    return URL::file(folder->second).appending(url.lastPathComponent()).path();
  }
  /// Of what may be a link to a folder.
  static std::string realPath(const URL& url) { return url.resolvingSymlinks().path(); }

 private:
  std::unordered_map<std::string, std::string> folders_;  ///< as they are written, with where they lead
};

bool isBelow(const std::string& path, const std::string& folder) {
  return path.size() > folder.size() && path.starts_with(folder) &&
         (folder == "/" || path[folder.size()] == '/');
}

std::vector<UndoRecord> recordsOf(const History::Selection& selection) {
  std::vector<UndoRecord> records;
  records.reserve(selection.entries.size());
  for (const auto* entry : selection.entries) records.push_back(entry->record);
  return records;
}

}  // namespace

std::string_view History::rawValue(State state) {
  switch (state) {
    case State::missing:
      return "missing";
    case State::edited:
      return "edited";
    case State::interrupted:
      return "interrupted";
    case State::expired:
      return "expired";
    case State::restorable:
      break;
  }
  return "restorable";
}

/// What an earlier history knows of record files.
class History::Earlier {
 public:
  explicit Earlier(const History* history) {
    if (!history) return;
    for (const auto& entry : history->entries_) {
      if (entry.record.state == UndoRecord::State::committed)
        known_.emplace(history->store_.recordURL(entry.record).path(), &entry);
    }
  }

  /// Null unless the file there is the one that was read.
  const Entry* find(const URL& file, const files::ResourceValues& values) const {
    const auto found = known_.find(file.path());
    if (found == known_.end()) return nullptr;
    const Entry& entry = *found->second;
    return entry.writtenAt == values.changedAt && entry.device == values.device ? &entry : nullptr;
  }

 private:
  std::unordered_map<std::string, const Entry*> known_;
};

History::History(UndoStore store, const History* earlier) : store_(std::move(store)) {
  std::vector<std::string> sessions;
  try {
    files::visitDirectory(store_.root(), [&](std::string_view name, bool isDirectory) {
      if (isDirectory) sessions.emplace_back(name);
    });
  } catch (const FileError& error) {
    if (error.code() != ENOENT) throw;
  }
  const Earlier known(earlier);
  for (const auto& session : sessions) readSession(store_.root().appending(session), known);
  sort();
}

void History::readSession(const URL& session, const Earlier& earlier) {
  std::vector<std::string> names;
  try {
    files::visitDirectory(session, [&](std::string_view name, bool) {
      if (name.ends_with(".json") && name != ".json") names.emplace_back(name);
    });
  } catch (const FileError& error) {
    if (!error.isNoSuchFile()) ++unreadable_;
  }
  for (const auto& name : names) {
    const URL file = session.appending(name);
    try {
      const auto values = files::resourceValues(file);
      if (const Entry* known = earlier.find(file, values)) {
        entries_.push_back(*known);
      } else if (auto record = UndoRecord::read(file)) {
        entries_.push_back({*std::move(record), values.changedAt, values.device});
      }
    } catch (const FileError& error) {
      if (!error.isNoSuchFile()) ++unreadable_;
    }
  }
}

void History::sort() {
  std::map<UUID, Date> newest;
  for (const auto& [record, writtenAt, device] : entries_) {
    const auto found = newest.try_emplace(record.sessionID, record.createdAt).first;
    found->second = std::max(found->second, record.createdAt);
  }
  std::vector<std::pair<Date, std::size_t>> order;  // moving light pairs instead of entries
  order.reserve(entries_.size());
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    order.emplace_back(newest.at(entries_[i].record.sessionID), i);
  }
  std::ranges::stable_sort(order, [&](const auto& a, const auto& b) {
    if (a.first != b.first) return a.first > b.first;
    const UndoRecord &one = entries_[a.second].record, &other = entries_[b.second].record;
    if (one.sessionID != other.sessionID) return one.sessionID < other.sessionID;
    return one.createdAt > other.createdAt;
  });
  std::vector<Entry> sorted;
  sorted.reserve(entries_.size());
  for (const auto& [date, index] : order) sorted.push_back(std::move(entries_[index]));
  entries_ = std::move(sorted);
}

History::State History::state(const Entry& entry, Date now) const {
  const UndoRecord& record = entry.record;
  const Found original(URL::file(record.originalPath));
  if (record.state == UndoRecord::State::prepared) return stateOfPrepared(record, original);
  const Found replacement = record.convertedPath ? Found(URL::file(*record.convertedPath)) : original;
  if (!replacement.isThere) return State::missing;
  const auto isAsRecorded = [&](const Found& found, std::int64_t bytes) {
    return found.isFile && found.bytes == bytes && found.isUntouchedSince(entry);
  };
  if (!isAsRecorded(replacement, record.replacementBytes)) return State::edited;
  // The original of a conversion stays where it was; without it, it is put back.
  if (record.convertedPath && original.isThere && !isAsRecorded(original, record.originalBytes)) {
    return State::edited;
  }
  if (now >= entry.restorableUntil() || !Found(store_.backupURL(record)).isThere) return State::expired;
  return State::restorable;
}

History::Selection History::select(std::string_view text) const {
  if (text == "latest") {
    Selection latest{.kind = Kind::batch, .entries = {}};
    for (const auto& entry : entries_) {
      if (entry.record.sessionID == entries_.front().record.sessionID) latest.entries.push_back(&entry);
    }
    if (latest.entries.empty()) throw SelectionError();
    return latest;
  }
  auto byID = isShortenedID(text) ? selectID(text) : Selection{};
  if (UUID::isCanonical(text) && !byID.entries.empty()) return byID;
  auto byPath = selectPath(text);
  if (byID.entries.empty()) {
    if (byPath.entries.empty()) throw SelectionError();
    return byPath;
  }
  // A folder may be called "2024".
  if (!byPath.entries.empty() || files::exists(URL::file(text))) {
    auto candidates = recordsOf(byID);
    std::ranges::move(recordsOf(byPath), std::back_inserter(candidates));
    throw SelectionError(std::move(candidates));
  }
  return byID;
}

History::Selection History::selectID(std::string_view text) const {
  const std::string start = lowercasedHex(text);
  const auto begins = [&](const UUID& id) { return lowercasedHex(id.string()).starts_with(start); };
  Selection records, batches{.kind = Kind::batch, .entries = {}};
  for (const auto& entry : entries_) {
    if (begins(entry.record.id)) records.entries.push_back(&entry);
    if (begins(entry.record.sessionID)) batches.entries.push_back(&entry);
  }
  const bool oneBatch = std::ranges::all_of(batches.entries, [&](const Entry* entry) {
    return entry->record.sessionID == batches.entries.front()->record.sessionID;
  });
  if (batches.entries.empty() && records.entries.size() <= 1) return records;
  if (records.entries.empty() && oneBatch) return batches;
  auto candidates = recordsOf(records);
  std::ranges::move(recordsOf(batches), std::back_inserter(candidates));
  throw SelectionError(std::move(candidates));
}

History::Selection History::selectPath(std::string_view text) const {
  Places places;
  const std::string path = places.of(std::string(text)), folder = Places::realPath(URL::file(text));
  Selection files{.kind = Kind::file, .entries = {}}, below{.kind = Kind::folder, .entries = {}};
  for (const auto& entry : entries_) {
    const UndoRecord& record = entry.record;
    const std::string original = places.of(record.originalPath);
    const std::string converted = record.convertedPath ? places.of(*record.convertedPath) : original;
    if (original == path || converted == path) files.entries.push_back(&entry);
    if (isBelow(original, folder) || isBelow(converted, folder)) below.entries.push_back(&entry);
  }
  auto& selection = files.entries.empty() ? below : files;
  // Batches may have run at the same time.
  std::ranges::stable_sort(selection.entries, [](const Entry* a, const Entry* b) {
    return a->record.createdAt > b->record.createdAt;
  });
  return selection;
}

const History::Entry& History::selectOne(std::string_view text) const {
  const Selection selection = select(text);
  if (selection.entries.size() == 1 || selection.kind == Kind::file) return *selection.entries.front();
  throw SelectionError(recordsOf(selection));
}

std::vector<const History::Entry*> History::undoOrder(const Selection& selection,
                                                      std::optional<Date> now) const {
  if (selection.kind == Kind::record || selection.kind == Kind::batch) return selection.entries;
  std::vector<const Entry*> order;
  std::unordered_map<std::string, const Entry*> lowest;  // of each file; null where no more can follow
  Places places;
  for (const auto* entry : selection.entries) {
    const UndoRecord& record = entry->record;
    const std::string file = places.of(record.convertedPath.value_or(record.originalPath));
    auto [found, isNewest] = lowest.try_emplace(file, entry);
    if (!isNewest) {
      const bool follows = found->second && found->second->record.originalHash == record.replacementHash &&
                           files::exists(store_.backupURL(record)) &&
                           (!now || *now < entry->restorableUntil());
      found->second = follows ? entry : nullptr;
    }
    if (found->second) order.push_back(entry);
  }
  return order;
}

}  // namespace tidewell
