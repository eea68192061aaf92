// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/batch/BackgroundBatchResult.h"
#include "CompressionKit/batch/Reports.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "TidewellDesktop/models/FileListModel.h"

namespace tidewell::desktop {

// What a trace says of the row of its file. They come in this order, and any of them may be missing.

/// That the file is being replaced, or was.
void apply(const UndoRecord& record, FileRow& row);
/// How the file ended. Why it failed is a guess, until the result says it.
void apply(const Report& report, FileRow& row);
void apply(const BackgroundBatchResult::Item& item, FileRow& row);

}  // namespace tidewell::desktop
