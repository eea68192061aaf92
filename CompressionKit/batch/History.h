// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {

/// A text names no record, or several where one was asked for.
class SelectionError : public std::exception {
 public:
  explicit SelectionError(std::vector<UndoRecord> candidates = {}) : candidates_(std::move(candidates)) {}
  const char* what() const noexcept override { return "没有找到对应的压缩记录"; }
  /// What a shortened ID, or a name like one, may mean; empty when it means nothing.
  const std::vector<UndoRecord>& candidates() const { return candidates_; }

 private:
  std::vector<UndoRecord> candidates_;
};

/// What was replaced and can perhaps be undone: every record of a store as it was read at one moment, batch
/// by batch, the newest batch first, and newest first in each. Some hundred bytes a record.
class History {
 public:
  /// What the files of a record look like, by size and change time alone: the first that holds.
  enum class State {
    missing,      ///< the replacement does not stand under its name
    edited,       ///< what stands there is not what the record says, or was touched after it
    interrupted,  ///< the replacement was never finished
    expired,      ///< too old, or its backup is gone
    restorable,
  };
  static std::string_view rawValue(State state);

  struct Entry {
    UndoRecord record;
    std::int64_t writtenAt = 0;  ///< the record file's change time, nanoseconds since 1970
    std::uint64_t device = 0;    ///< that it lies on
    Date restorableUntil() const { return record.createdAt.adding(UndoStore::backupRetention); }
  };

  /// Reads the records; what cannot be read is passed over and counted. Throws `FileError` when the root
  /// exists and cannot be listed. Of `earlier`, a history of the same store, it takes the committed records
  /// whose files were not touched since, which never change.
  explicit History(UndoStore store, const History* earlier = nullptr);

  const UndoStore& store() const { return store_; }
  const std::vector<Entry>& entries() const { return entries_; }
  /// Sessions and record files that could not be read: another user's, perhaps.
  std::size_t unreadable() const { return unreadable_; }
  /// Looks at the files, hashes nothing.
  State state(const Entry& entry, Date now = Date::now()) const;

  enum class Kind { record, batch, file, folder };
  struct Selection {
    Kind kind = Kind::record;
    std::vector<const Entry*> entries;  ///< of this history, newest first
  };
  /// What a text names: "latest" (the newest batch); the ID of a record or a batch, which may be shortened to
  /// four characters or more; else a path: an original or converted file, or a folder with every record below
  /// it, by whatever links its folders are reached. Throws `SelectionError` for what names no record, and for
  /// a shortened ID that is the name of a file or folder, too.
  Selection select(std::string_view text) const;
  /// The same for one record: of a file the newest, of a batch its only one.
  const Entry& selectOne(std::string_view text) const;
  /// What undoing a selection comes to, in the order in which it must happen: all of it where it is a record
  /// or a batch; by path, of each file the newest record, and those before it while each made what the next
  /// one found and has its backup, for which at `now`, where that is given, it is not too late.
  std::vector<const Entry*> undoOrder(const Selection& selection, std::optional<Date> now) const;

 private:
  class Earlier;
  void readSession(const URL& session, const Earlier& earlier);
  void sort();
  Selection selectID(std::string_view text) const;
  Selection selectPath(std::string_view text) const;

  UndoStore store_;
  std::vector<Entry> entries_;
  std::size_t unreadable_ = 0;
};

}  // namespace tidewell
