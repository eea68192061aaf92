// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {

/// What became of a batch: the JSON that command mode prints and the foreground application reads.
struct BackgroundBatchResult {
  struct Item {
    std::string path;
    std::string outcome;  ///< "replaced", "converted", "skipped" or "failed"
    std::optional<std::int64_t> originalBytes;
    std::optional<std::int64_t> finalBytes;
    std::optional<std::string> error;

    bool operator==(const Item&) const = default;
  };

  UUID sessionID;
  Date finishedAt;
  std::vector<Item> items;  ///< one per input, in input order

  std::int64_t replacedCount() const;  ///< "replaced" and "converted"
  std::int64_t failedCount() const;
  std::int64_t skippedCount() const;
  std::int64_t savedBytes() const;  ///< an item that grew counts as 0

  /// Compact JSON, always valid UTF-8: a path that is not is written repaired.
  std::string json() const;
  /// Nothing when a required key is missing or of the wrong type.
  static std::optional<BackgroundBatchResult> parse(std::string_view json);

  bool operator==(const BackgroundBatchResult&) const = default;
};

}  // namespace tidewell
