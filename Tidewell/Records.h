// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <algorithm>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/UndoActions.h"
#include "CompressionKit/platform/UUID.h"
#include "Tidewell/Commands.h"

namespace tidewell {

class Terminal;

// What the commands on records share.

/// Enough of an ID to name it, in nearly every store.
std::string shortID(const UUID& id);

/// The exit status of several files: that of all that did not go well, or `failed` when they differ.
class StatusOfMany {
 public:
  void add(ExitStatus status) {
    if (status == done) return;
    value_ = value_ == done || value_ == status ? status : failed;
  }
  ExitStatus value() const { return value_; }

 private:
  ExitStatus value_ = done;
};

/// Reads the history, and says how much of it could not be read.
History readHistory(Terminal& terminal);

/// What `text` names, or why it names nothing, which is told.
struct Selected {
  ExitStatus status = done;
  History::Selection selection;
};
Selected select(const History& history, const std::string& text, Terminal& terminal);
/// Says why `text` names no record, or not one; the status for it.
ExitStatus tellUnselected(const std::string& text, const SelectionError& error, Terminal& terminal);

/// What an outcome means for the exit status.
ExitStatus statusOf(UndoActions::Outcome outcome);
/// Says why a record could not be used.
void tellOutcome(const UndoRecord& record, const UndoActions& actions, const UndoActions::Result& result,
                 Terminal& terminal);

/// A label and what it says.
using Fact = std::pair<std::string, std::string>;
/// One a line, the values below each other.
void printFacts(const std::vector<Fact>& facts, Terminal& terminal);

/// What a replacement adds to a sum: one that grew, as a conversion may, adds nothing.
inline std::int64_t savedBytes(const UndoRecord& record) {
  return std::max<std::int64_t>(record.originalBytes - record.replacementBytes, 0);
}
/// Puts a path under its key: repaired, and then exactly under "<key>_b64" too, where it is no UTF-8.
void putPath(nlohmann::ordered_json& object, const std::string& key, const std::string& path);

}  // namespace tidewell
