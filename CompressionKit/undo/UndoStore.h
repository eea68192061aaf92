// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/undo/UndoRecord.h"

namespace tidewell {

class FolderSweeps;
class StoreSurvey;

/// Backups of replaced files with one JSON record each: root/<session>/<id>.<extension> and
/// root/<session>/<id>.json. A value without state; several processes share one tree without a lock.
class UndoStore {
 public:
  /// Seconds after a record's creation during which its backup may be restored; then it is due for removal.
  static constexpr double backupRetention = 14400;

  /// Without a root: "Tidewell/Undo" in Application Support. Creates nothing.
  explicit UndoStore(std::optional<URL> root = std::nullopt);

  const URL& root() const { return root_; }
  /// Whether the file lies as the backup of a record does, in whatever store, another user's perhaps.
  static bool isBackup(const URL& file);
  URL backupURL(const UndoRecord& record) const;
  URL recordURL(const UndoRecord& record) const;
  /// Where the reports of files whose originals lie in this store go: "CompressionDiagnostics" beside the
  /// root, also for a root such as "..".
  URL diagnosticsDirectory() const;

  // --- Listing, newest first ---
  std::vector<UndoRecord> readRecords() const;  ///< throws `FileError` for what cannot be read
  std::vector<UndoRecord> records() const;      ///< skips what cannot be read, never throws
  /// Deletes every committed record with its backup; throws the first failure after trying all.
  void removeAll() const;

  // --- Replacement protocol ---
  /// Backs `source` up and writes a prepared record. Everything is on the disk when it returns. Throws
  /// `FileError`; no backup and no record remain then. What lies in the store, and the backup of any other,
  /// is refused (EPERM): one that is replaced is lost to the record that names it.
  UndoRecord prepare(const URL& source, const URL& candidate, const UUID& sessionID,
                     const std::optional<std::string>& convertedPath) const;
  void commit(const UndoRecord& record) const;
  void discard(const UndoRecord& record) const noexcept;
  void deleteRecord(const UndoRecord& record) const;  ///< `delete` is a keyword here
  /// Puts the backup back when every file involved is what the record says. Throws `CompressionError`,
  /// `FileError`. With `sweeps`, which several restores share, each folder is looked through once.
  void restore(const UndoRecord& record, Date now = Date::now(), FolderSweeps* sweeps = nullptr) const;
  /// The hash of the record's backup, once it is proven intact.
  std::string verifyBackup(const UndoRecord& record) const;
  void removeBackup(const UndoRecord& record) const noexcept;

  // --- Maintenance ---
  // Removes backups of committed records and keeps the records. Removes too what killed processes left in the
  // store and among the diagnostics, `backupRetention` after its last change: files half written, backups
  // without a record, empty sessions. Never what a record names, nothing in a session with a record that
  // cannot be read, and no link or anything else that is not a plain file of this user.
  struct Maintenance {
    bool changed = false;                ///< backups of records were removed
    bool overdue = false;                ///< a backup that is too old could not be removed
    std::optional<Date> nextExpiration;  ///< as `nextBackupExpiration` gives it after the pass
  };
  /// One pass, by age and then by the size of all that is left.
  Maintenance maintain(double maxAge, std::int64_t maxBytes, Date now) const noexcept;
  /// The same.
  void cleanup(double maxAge, std::int64_t maxBytes, Date now) const noexcept;
  /// The earliest expiry of a committed record whose backup is there.
  std::optional<Date> nextBackupExpiration() const;

 private:
  std::vector<UndoRecord> scanRecords(bool checked) const;
  StoreSurvey survey() const;
  void writeRecord(const UndoRecord& record) const;

  URL root_;
};

namespace BackupMaintenanceDelay {
/// Seconds to wait before the next maintenance pass: `idle` without a date, else the time to it between
/// 1 and 3600, or 60 when the difference is not finite.
double seconds(std::optional<Date> until, Date now, double idle);
}  // namespace BackupMaintenanceDelay

}  // namespace tidewell
