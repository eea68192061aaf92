// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {

/// One replacement that can be undone: what was replaced, by what, and when. Stored as one JSON object.
struct UndoRecord {
  enum class State { prepared, committed };

  UUID id;
  UUID sessionID;  ///< the batch
  Date createdAt;
  std::string originalPath;  ///< absolute, as bytes
  std::string backupName;    ///< file name inside the session directory
  std::int64_t originalBytes = 0;
  std::int64_t replacementBytes = 0;
  std::string replacementHash;
  std::optional<std::string> originalHash;
  State state = State::prepared;
  std::optional<std::string> convertedPath;  ///< the new file of a format conversion, as bytes

  bool operator==(const UndoRecord&) const = default;

  /// Compact UTF-8 JSON. A path that is not valid UTF-8 is written repaired, and exactly in an extra key
  /// ("originalPathBase64", "convertedPathBase64") that other readers ignore.
  std::string json() const;
  /// Nothing for text that is not a record.
  static std::optional<UndoRecord> parse(std::string_view json);
  /// The record in a file; nothing for a file that is none. Throws `FileError`.
  static std::optional<UndoRecord> read(const URL& file);
};

std::string_view rawValue(UndoRecord::State state);

}  // namespace tidewell
