// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/undo/UndoRecord.h"

namespace tidewell {

/// The label of an output that is the original without its metadata, in place of an encoder's.
inline constexpr const char* strippedOnly = "strip";

/// How one file ended. The raw values stand in JSON files and must not change.
class CompressionOutcome {
 public:
  enum Value { replaced, skipped, converted };

  constexpr CompressionOutcome(Value value) : value_(value) {}  // NOLINT(google-explicit-constructor)
  constexpr operator Value() const { return value_; }           // NOLINT(google-explicit-constructor)

  static std::optional<CompressionOutcome> fromRawValue(std::string_view rawValue);
  std::string_view rawValue() const;

 private:
  Value value_;
};

/// Why a file was skipped.
enum class PassedOver {
  notSmaller,     ///< no encoding that passed is smaller
  belowMinimum,   ///< one is, but by less than `MinimumSaving` asks
  embeddedMedia,  ///< something else is embedded in it, and its metadata were to be kept
};

struct CompressionResult {
  URL url;  ///< the file the result is about; for `converted` the new file
  std::int64_t originalBytes = 0;
  std::int64_t finalBytes = 0;
  CompressionOutcome outcome = CompressionOutcome::skipped;
  std::optional<std::string> encoder;
  std::optional<double> qualityScore;
  std::optional<UndoRecord> undoRecord;  ///< as `prepare` returned it, so its state reads prepared
  std::optional<PassedOver> passedOver;  ///< of a skipped one only
  /// SHA-256 of the original, and of what was made of it, as they were judged; skipped ones have the first
  /// only.
  std::optional<std::string> originalHash, finalHash;

  std::int64_t savedBytes() const { return originalBytes - finalBytes; }
  double savedRatio() const;
};

}  // namespace tidewell
