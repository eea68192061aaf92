// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/UndoActions.h"

namespace tidewell {

// Records and what is done with them, as people read it.

/// What can still be done with a record: "restorable until 18:40".
std::string prospectText(History::State state, Date restorableUntil, bool hasBackup, Date now = Date::now());
/// Why an action did not happen; empty where it did, or where there was nothing to do.
std::string problemText(const UndoRecord& record, const UndoActions::Result& result);
/// That a restore had nothing to do.
std::string nothingToRestoreText(const UndoRecord& record, const UndoActions::Result& result);

}  // namespace tidewell
