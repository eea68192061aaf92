// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/UndoActions.h"

#include <string>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "CompressionKit/undo/RestoreTemporary.h"

namespace tidewell {
namespace {

using Outcome = UndoActions::Outcome;
using Result = UndoActions::Result;

/// The hash of what stands there; nothing where nothing does. Throws `FileError`.
std::optional<std::string> hashIfThere(const URL& url) {
  try {
    return hash(url);
  } catch (const FileError& error) {
    if (!error.isNoSuchFile()) throw;
    return std::nullopt;
  }
}

/// A replacement that was never finished, or never begun: there is nothing to put back.
bool originalStands(const UndoRecord& record) {
  if (!record.originalHash || (record.convertedPath && hashIfThere(URL::file(*record.convertedPath)))) {
    return false;
  }
  return hashIfThere(URL::file(record.originalPath)) == record.originalHash;
}

/// Every file that a restore would overwrite, remove or leave in its place is what the record says.
bool filesAreAsRecorded(const UndoRecord& record, const std::string& backupHash) {
  const auto original = hashIfThere(URL::file(record.originalPath));
  if (!record.convertedPath) return !original || *original == record.replacementHash;
  const auto converted = hashIfThere(URL::file(*record.convertedPath));
  return (!converted || *converted == record.replacementHash) && (!original || *original == backupHash);
}

/// What became of the backup of a record that could not be used.
Outcome judgedBackup(const UndoStore& store, const UndoRecord& record) {
  if (!files::exists(store.backupURL(record))) return Outcome::backupMissing;
  try {
    store.verifyBackup(record);
  } catch (const CompressionError&) {
    return Outcome::backupDamaged;
  } catch (const std::exception&) {
  }
  return Outcome::failed;
}

/// Runs one action; what it throws becomes its outcome.
template <typename Work>
Result guarded(const UndoStore& store, const UndoRecord& record, Work work) {
  try {
    return work();
  } catch (const Interrupted&) {
    throw;
  } catch (const CompressionError& error) {
    if (error.kind() == CompressionError::Case::unsafeRestore) return {Outcome::edited};
    return {judgedBackup(store, record), std::nullopt, std::current_exception()};
  } catch (const std::exception&) {
    return {Outcome::failed, std::nullopt, std::current_exception()};
  }
}

/// "photo.jpg", "photo-2.jpg", "photo-3.jpg" …
URL numbered(const URL& folder, const URL& original, int number) {
  if (number == 1) return folder.appending(original.lastPathComponent());
  const std::string extension = original.pathExtension();
  return folder.appending(fittingName(
      original.stem(), "-" + std::to_string(number) + (extension.empty() ? "" : "." + extension)));
}

}  // namespace

UndoActions::UndoActions(UndoStore store, CompressionQueue& queue)
    : store_(std::move(store)), queue_(queue) {}

/// The record may have changed while its file was waited for: it is read anew. One that is gone was restored
/// or forgotten meanwhile.
template <typename Work>
UndoActions::Result UndoActions::withPermit(const UndoRecord& record, Work work) {
  const auto perform = [&]() -> Result {
    std::optional<UndoRecord> current;
    try {
      current = UndoRecord::read(store_.recordURL(record));
    } catch (const FileError& error) {
      if (!error.isNoSuchFile()) throw;
    }
    if (!current) return {Outcome::nothingToDo};
    return work(*current);
  };
  return guarded(store_, record,
                 [&] { return queue_.run(URL::file(record.originalPath), nullptr, perform).get(); });
}

UndoActions::Result UndoActions::restore(const UndoRecord& record, Date now) {
  return withPermit(record, [&](const UndoRecord& current) -> Result {
    const URL original = URL::file(current.originalPath);
    if (current.state == UndoRecord::State::prepared && originalStands(current)) {
      return {Outcome::nothingToDo, original};
    }
    // Asked here, for the store removes the backup of a record that is too old.
    if (now >= current.createdAt.adding(UndoStore::backupRetention)) return {Outcome::expired};
    if (!files::exists(store_.backupURL(current))) return {Outcome::backupMissing};
    store_.restore(current, now, &sweeps_);
    return {Outcome::done, original};
  });
}

UndoActions::Result UndoActions::check(const UndoRecord& record, const UndoRecord* onTop, Date now) {
  return withPermit(record, [&](const UndoRecord& current) -> Result {
    const URL original = URL::file(current.originalPath);
    if (current.state == UndoRecord::State::prepared && originalStands(current)) {
      return {Outcome::nothingToDo, original};
    }
    if (now >= current.createdAt.adding(UndoStore::backupRetention)) return {Outcome::expired};
    const std::string backupHash = store_.verifyBackup(current);
    const bool fits =
        onTop ? onTop->originalHash == current.replacementHash : filesAreAsRecorded(current, backupHash);
    if (!fits) return {Outcome::edited};
    return {Outcome::done, original};
  });
}

UndoActions::Result UndoActions::copyOut(const UndoRecord& record, const URL& folder) const {
  return guarded(store_, record, [&]() -> Result {
    const URL original = URL::file(record.originalPath);
    const std::string backupHash = store_.verifyBackup(record);
    const RestoreTemporary copy(store_.backupURL(record), backupHash, numbered(folder, original, 1));
    constexpr int mostNumbers = 10000;
    for (int number = 1; number <= mostNumbers; ++number) {
      const URL place = numbered(folder, original, number);
      if (atomicRenameIfAbsent(copy.url(), place)) return {Outcome::done, place};
    }
    throw FileError("创建", original.path(), EEXIST);
  });
}

UndoActions::Result UndoActions::forget(const UndoRecord& record) {
  return withPermit(record, [&](const UndoRecord& current) -> Result {
    store_.deleteRecord(current);
    return {Outcome::done, URL::file(current.originalPath)};
  });
}

}  // namespace tidewell
