// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {

/// What became of one file of a batch.
struct FileReport {
  enum class Outcome {
    replaced,
    converted,  ///< a new file stands beside the original: `output`
    written,    ///< a copy, smaller or with a `reason` unchanged, stands elsewhere: `output`
    skipped,    ///< for a `reason`
    failed,     ///< with an `error`
  };
  /// Why a file was passed over.
  enum class Reason { alreadyCompressed, unsupported, belowMinimum, notSmaller, embeddedMedia };

  std::size_t number = 0;  ///< how many files the batch was given before this one
  URL url;
  bool isNamed = false;  ///< not found in a folder
  Outcome outcome = Outcome::failed;
  std::optional<Reason> reason;
  std::optional<URL> output;                  ///< a dry run says where it would be, without making it
  std::optional<std::int64_t> originalBytes;  ///< absent when the file was not looked into
  std::optional<std::int64_t> finalBytes;
  std::optional<double> score;  ///< of one that was compressed before, as it was then
  std::optional<std::string> encoder;
  std::optional<UUID> record;  ///< in the undo store
  std::exception_ptr error;

  std::int64_t savedBytes() const;  ///< never below 0; a conversion may grow
};

/// "replaced", "converted", "written", "skipped", "failed".
std::string_view rawValue(FileReport::Outcome outcome);
/// "already_compressed", "unsupported", "below_minimum", "not_smaller", "embedded_media".
std::string_view rawValue(FileReport::Reason reason);

}  // namespace tidewell
