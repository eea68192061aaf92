// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// The two phases of a replacement, and the removal of its record.

#include <unistd.h>

#include <cerrno>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {
namespace {

/// Removes a file; one that is not there is as good as removed.
void removeIfPresent(const URL& url) {
  try {
    files::removeItem(url);
  } catch (const FileError& error) {
    if (!error.isNoSuchFile()) throw;
  }
}

/// Other files of the batch may give up and remove the directory, which is empty yet, between the two steps,
/// and others again make it anew. Only a source that is gone, or a directory that cannot be made, is a
/// failure. The hash of the copy. The directory's name is on the disk once the caller has flushed the root.
std::string copyToSession(const URL& source, const URL& backup, const URL& session) {
  constexpr int maximumAttempts = 100;
  for (int attempt = 1;; ++attempt) {
    files::createDirectories(session.deletingLastPathComponent(), 0700);
    files::createDirectories(session, 0700, files::Durability::cached);
    try {
      return copyAndHash(source, backup);
    } catch (const FileError& error) {
      if (!error.isNoSuchFile() || !files::exists(source) || attempt == maximumAttempts) throw;
    }
  }
}

}  // namespace

UndoRecord UndoStore::prepare(const URL& source, const URL& candidate, const UUID& sessionID,
                              const std::optional<std::string>& convertedPath) const {
  if (isBackup(source) || files::liesBelow(source, root_)) throw FileError("写入", source.path(), EPERM);
  UndoRecord record;
  record.id = UUID::random();
  record.sessionID = sessionID;
  record.backupName = record.id.string() + "." + asciiLowercased(source.pathExtension());
  const URL session = root_.appending(sessionID.string());
  const URL backup = backupURL(record);
  record.originalHash =
      copyToSession(source, backup, session);  // the copy's, so that the caller can prove it
  try {
    record.originalBytes = fileSize(source);
    record.replacementBytes = fileSize(candidate);
    record.createdAt = Date::now();
    record.originalPath = source.path();
    record.replacementHash = hash(candidate);
    record.state = UndoRecord::State::prepared;
    record.convertedPath = convertedPath;
    writeRecord(record);  // flushes the directory, and with it the backup's entry
    files::flush(root_);  // for its own name, also where another file of the batch has made it
  } catch (...) {
    files::removeItemIfPossible(backup);
    files::removeItemIfPossible(recordURL(record));  // its name may stand although its flush failed
    rmdir(session.path().c_str());  // only when it is empty: other files of the batch are safe
    throw;
  }
  return record;
}

void UndoStore::writeRecord(const UndoRecord& record) const {
  files::writeAtomically(recordURL(record), record.json(), files::Durability::flushed, 0600);
}

void UndoStore::commit(const UndoRecord& record) const {
  UndoRecord committed = record;
  committed.state = UndoRecord::State::committed;
  writeRecord(committed);
}

void UndoStore::discard(const UndoRecord& record) const noexcept {
  try {
    deleteRecord(record);
  } catch (...) {
  }
}

void UndoStore::deleteRecord(const UndoRecord& record) const {
  try {
    removeIfPresent(backupURL(record));
    removeIfPresent(recordURL(record));
  } catch (const FileError& error) {
    const std::string name = repairedUTF8(URL::file(record.originalPath).lastPathComponent());
    throw CompressionError::fileOperation("无法删除 {1} 的记录或备份：{2}", name, error);
  }
  rmdir(recordURL(record).deletingLastPathComponent().path().c_str());
}

}  // namespace tidewell
