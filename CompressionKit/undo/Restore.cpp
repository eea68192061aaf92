// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// Putting an original back. Every file that is overwritten or removed here is hashed immediately before, so
// that nothing the user changed since the replacement is ever lost.

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "CompressionKit/undo/Displacement.h"
#include "CompressionKit/undo/FolderSweep.h"
#include "CompressionKit/undo/RestoreTemporary.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {
namespace {

void requireHash(const URL& url, const std::string& expected) {
  if (hash(url) != expected) throw CompressionError::unsafeRestore();
}

/// Follows links, as `files::exists` does; but what cannot be found out must not count as absent.
bool isThere(const URL& url) {
  try {
    fileSize(url);
    return true;
  } catch (const FileError& error) {
    if (!error.isNoSuchFile()) throw;
    return false;
  }
}

void moveIfAbsent(const URL& source, const URL& destination) {
  if (!atomicRenameIfAbsent(source, destination)) throw CompressionError::unsafeRestore();
}

/// For file systems without an exchange.
void overwriteReplacement(const URL& copy, const URL& original, const std::string& replacementHash) {
  files::flush(copy);  // now, so that the rename follows a last look at once
  const auto found = files::resourceValues(original);
  requireHash(original, replacementHash);
  if (files::resourceValues(original) != found) throw CompressionError::unsafeRestore();
  atomicRename(copy, original);
}

/// Puts the copy in the replaced file's place. What comes out from there is looked at before it goes.
void exchangeForReplacement(const URL& copy, const URL& original, const std::string& backupHash,
                            const std::string& replacementHash) {
  Displacement displaced(original, {backupHash, replacementHash});
  displaced.put(copy);
  switch (displaced.exchange()) {
    case Exchange::done:
      if (!displaced.holdsForeignWork()) return;
      displaced.bringBack();
      throw CompressionError::unsafeRestore();
    case Exchange::unsupported:
      return overwriteReplacement(displaced.place(), original, replacementHash);
    case Exchange::vanished:
      return moveIfAbsent(displaced.place(), original);
  }
}

void restoreInPlace(const UndoRecord& record, const URL& backup, const std::string& backupHash) {
  const URL original = URL::file(record.originalPath);
  if (files::exists(original)) requireHash(original, record.replacementHash);
  const RestoreTemporary temporary(backup, backupHash, original);
  if (files::exists(original)) {
    requireHash(original, record.replacementHash);
    // Who may read it, and how it is tagged, may have changed since the backup was made.
    files::copyAttributes(original, temporary.url());
    exchangeForReplacement(temporary.url(), original, backupHash, record.replacementHash);
  } else {
    moveIfAbsent(temporary.url(), original);
  }
}

/// Moves the new file out of sight before it goes, so that it is what was hashed.
void removeConverted(const URL& converted, const std::string& replacementHash) {
  requireHash(converted, replacementHash);
  Displacement taken(converted, {replacementHash, replacementHash});
  if (!taken.take() || !taken.holdsForeignWork()) return;
  taken.bringBack();
  throw CompressionError::unsafeRestore();
}

void restoreConversion(const UndoRecord& record, const URL& backup, const std::string& backupHash) {
  const URL original = URL::file(record.originalPath);
  const URL converted = URL::file(*record.convertedPath);
  if (isThere(converted)) requireHash(converted, record.replacementHash);
  if (!isThere(original)) {
    const RestoreTemporary temporary(backup, backupHash, original);
    moveIfAbsent(temporary.url(), original);
  }
  requireHash(original, backupHash);
  if (isThere(converted)) removeConverted(converted, record.replacementHash);
}

}  // namespace

std::string UndoStore::verifyBackup(const UndoRecord& record) const {
  const URL backup = backupURL(record);
  const auto damaged = [] { return CompressionError::fileOperation("原图备份已损坏，无法恢复或对比"); };
  if (!files::exists(backup)) throw CompressionError::fileOperation("原图备份已不存在");
  if (!files::resourceValues(backup).isRegularFile) throw damaged();  // nor a link to one
  if (fileSize(backup) != record.originalBytes) throw damaged();
  if (!record.originalHash) ImageFacts::inspect(backup);
  std::string backupHash = hash(backup);
  if (record.originalHash && *record.originalHash != backupHash) throw damaged();
  return backupHash;
}

void UndoStore::restore(const UndoRecord& record, Date now, FolderSweeps* sweeps) const {
  if (now >= record.createdAt.adding(backupRetention)) {
    removeBackup(record);
    throw CompressionError::fileOperation("原图备份已过期");
  }
  const URL folder = URL::file(record.originalPath).deletingLastPathComponent();
  sweeps ? sweeps->sweepOnce(folder) : sweepFolder(folder, now);
  const std::string backupHash = verifyBackup(record);
  if (record.convertedPath) {
    restoreConversion(record, backupURL(record), backupHash);
  } else {
    restoreInPlace(record, backupURL(record), backupHash);
  }
  discard(record);
}

}  // namespace tidewell
