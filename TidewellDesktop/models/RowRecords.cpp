// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/RowRecords.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "CompressionKit/engine/HEICConversion.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

/// The record that a row names, as it is on the disk. Throws what reading throws.
std::optional<UndoRecord> recordOf(const UndoStore& store, const FileRow& row) {
  if (!row.record || !row.batch) return std::nullopt;
  UndoRecord named;
  named.id = *row.record;
  named.sessionID = *row.batch;
  const URL file = store.recordURL(named);
  return files::exists(file) ? UndoRecord::read(file) : std::nullopt;
}

/// A HEIC file's original never leaves: the result went from beside it.
bool isOriginalBack(const FileRow& row) {
  if (!files::exists(row.url)) return false;
  if (row.state != RowState::converted) return row.before == fileSize(row.url);
  for (int attempt = 0; attempt < maximumConversionNames; attempt++) {
    const URL result = conversionURL(row.url, attempt);
    if (!files::exists(result)) break;
    if (row.after == fileSize(result)) return false;
  }
  return true;
}

}  // namespace

FoundRecords recordsOf(const UndoStore& store, const std::vector<FileRow>& rows) {
  FoundRecords found;
  for (const FileRow& row : rows) {
    try {
      if (auto record = recordOf(store, row)) found.records.push_back(std::move(*record));
    } catch (...) {
      found.problem = words(describedError(std::current_exception()));
    }
  }
  std::sort(found.records.begin(), found.records.end(),
            [](const UndoRecord& one, const UndoRecord& other) { return one.createdAt > other.createdAt; });
  return found;
}

std::vector<FileRow> rowsWithoutRecord(const UndoStore& store, std::vector<FileRow> rows) {
  std::vector<FileRow> gone;
  for (FileRow& row : rows) {
    try {
      if (recordOf(store, row)) continue;
      const bool isBack = isOriginalBack(row);
      row.record.reset();
      if (isBack) {
        row.state = RowState::restored;
        row.after.reset();
        row.score.reset();
        row.encoder.reset();
      }
      gone.push_back(std::move(row));
    } catch (const std::exception&) {
      // What cannot be read may still be there.
    }
  }
  return gone;
}

}  // namespace tidewell::desktop
