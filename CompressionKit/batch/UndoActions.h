// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <exception>
#include <optional>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/undo/FolderSweep.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {

/// What users do with records, one at a time and each with the permit of its file, as a compression has it.
/// Asking never removes a backup, whatever the answer. Any thread may call any operation.
class UndoActions {
 public:
  enum class Outcome {
    done,
    nothingToDo,    ///< the original stands there, or the record is gone by now
    edited,         ///< a file of the record is not what the record says; it was left alone
    expired,        ///< too late for a restore; the backup may still be copied out
    backupMissing,  ///< there is none any more
    backupDamaged,
    failed,  ///< for `error`
  };
  struct Result {
    Outcome outcome = Outcome::done;
    std::optional<URL> file = std::nullopt;  ///< what came back, or the copy
    std::exception_ptr error = nullptr;
  };

  UndoActions(UndoStore store, CompressionQueue& queue);

  const UndoStore& store() const { return store_; }

  /// Puts the original back where every file involved has the hash that the record says. Throws
  /// `Interrupted` only.
  Result restore(const UndoRecord& record, Date now = Date::now());
  /// What `restore` would say, without changing anything. With `onTop`, as if that record of the same file
  /// had been restored before.
  Result check(const UndoRecord& record, const UndoRecord* onTop = nullptr, Date now = Date::now());
  /// Copies the backup, proven, into an existing folder, also when it is too late for a restore: under the
  /// original's name or, where that is taken, a numbered one. Takes no permit and touches nothing else.
  Result copyOut(const UndoRecord& record, const URL& folder) const;
  /// Removes record and backup. Throws `Interrupted` only.
  Result forget(const UndoRecord& record);

 private:
  template <typename Work>
  Result withPermit(const UndoRecord& record, Work work);

  UndoStore store_;
  CompressionQueue& queue_;
  FolderSweeps sweeps_;  ///< each folder is looked through once
};

}  // namespace tidewell
