// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"

namespace tidewell {

/// One look through a store for its maintenance. Each directory is listed once, and records are read only
/// where something lies beside them: thousands of records whose backups are long gone cost no more than a
/// walk over their names.
class StoreSurvey {
 public:
  /// A directory in the root that holds something besides records, or nothing at all.
  struct Session {
    URL url;
    bool isOurs = false;     ///< named as a batch names its directory
    bool isReadable = true;  ///< no record in it failed to be read or decoded
    bool hasRecords = false;
    std::vector<std::string> others;  ///< names of all that is no record
  };

  /// Skips what cannot be listed or read. Throws `FileError` when that is the root itself, unless it is
  /// missing.
  explicit StoreSurvey(const URL& root);

  /// Something lies in a session that none of the records read so far names. One elsewhere may.
  bool hasUnnamedFiles() const;
  /// Takes these records, all that there are, instead of those read so far.
  void replaceRecords(std::vector<UndoRecord> records);

  /// The records, without paths and hashes. The survey has none left.
  std::vector<UndoRecord> takeRecords() { return std::move(records_); }
  const std::vector<Session>& sessions() const { return sessions_; }
  /// What killed writers left in the root itself.
  const std::vector<URL>& temporariesInRoot() const { return temporariesInRoot_; }
  /// A record names this file of the session as its backup.
  bool isNamed(const Session& session, std::string_view file) const;

 private:
  void look(const URL& directory, std::string_view name);
  void keepRecord(UndoRecord record);

  std::vector<Session> sessions_;
  std::vector<UndoRecord> records_;
  std::vector<URL> temporariesInRoot_;
  std::unordered_set<std::string> named_;  ///< "session/file"
};

}  // namespace tidewell
