// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/batch/FileReport.h"
#include "CompressionKit/undo/UndoStore.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Progress.h"
#include "Tidewell/Terminal.h"

namespace tidewell {

/// What a batch has done in all.
struct CompressTotals {
  std::int64_t files = 0;
  std::int64_t replaced = 0;  ///< replaced, converted or written smaller
  std::int64_t skipped = 0;
  std::int64_t failed = 0;
  std::int64_t unreached = 0;  ///< of those, what was stopped before it was done
  std::int64_t savedBytes = 0;
  std::map<FileReport::Reason, std::int64_t> reasons;
  std::vector<UUID> records;  ///< in the order in which files ended
};

/// How much of a batch can be undone now, as the store has it.
struct Restorable {
  std::int64_t files = 0;
  std::optional<Date> until;        ///< when the first of them expires
  std::string selector = "latest";  ///< what `tidewell restore` knows the batch by
};
/// Looks at the backups of one batch; `records` is what the batch has told of.
Restorable restorable(const UndoStore& store, const UUID& batch, const std::vector<UUID>& records);

/// Tells what becomes of files as it happens, for people or, with --json, for scripts.
class CompressReporter {
 public:
  /// All must outlive this. The batch is the ID in the undo store.
  CompressReporter(const CompressCommandOptions& options, Terminal& terminal, const Progress& progress,
                   UUID batch)
      : options_(options), terminal_(terminal), progress_(progress), batch_(batch) {}

  void tell(const FileReport& report);
  void summarize(const Restorable& restorable);
  const CompressTotals& totals() const { return totals_; }

 private:
  void count(const FileReport& report);
  void tellFile(const FileReport& report);
  void tellPerson(const FileReport& report);
  void tellStatus();
  std::string summaryLine(const Restorable& restorable) const;
  std::string passedOverLine() const;

  const CompressCommandOptions& options_;
  Terminal& terminal_;
  const Progress& progress_;
  UUID batch_;
  CompressTotals totals_;
  std::chrono::steady_clock::time_point statusTold_{};
};

}  // namespace tidewell
