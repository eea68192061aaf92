// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QString>
#include <vector>

#include "CompressionKit/undo/UndoRecord.h"
#include "CompressionKit/undo/UndoStore.h"
#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

// The records that rows name, as they are on the disk; looking blocks.

struct FoundRecords {
  std::vector<UndoRecord> records;  ///< the newest first, as they can be restored
  QString problem;                  ///< of one that could not be read
};
FoundRecords recordsOf(const UndoStore& store, const std::vector<FileRow>& rows);

/// Rows as they are once their records have gone: the originals are back, or cannot come back any more. Those
/// whose record is there are left out.
std::vector<FileRow> rowsWithoutRecord(const UndoStore& store, std::vector<FileRow> rows);

}  // namespace tidewell::desktop
