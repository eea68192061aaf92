// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/batch/BackgroundBatchResult.h"
#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"

namespace tidewell::desktop {

/// What running batches leave on the disk, and which of it is to be read.
struct TracesToRead {
  std::vector<URL> records;
  std::vector<URL> reports;
  std::vector<URL> sessions;       ///< directories, for all their records
  std::optional<URL> store;        ///< for the sessions in it that were changed later
  std::optional<URL> diagnostics;  ///< for the reports in it that were started later
  std::optional<URL> latestResult;

  bool empty() const;
};

struct Traces {
  std::vector<UndoRecord> records;  ///< of one file: in the order in which they were made
  std::vector<Report> reports;
  std::vector<URL> sessions;  ///< found in the store
  std::optional<BackgroundBatchResult> latestResult;
};

/// Blocks on the disk. What cannot be read is passed over: it may have gone since, or is none of ours.
Traces readTraces(const TracesToRead& wish, Date since);

}  // namespace tidewell::desktop
