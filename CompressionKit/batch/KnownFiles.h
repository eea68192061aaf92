// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>

#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Which files need not be compressed, for all that the memory of outputs knows of them. A value; any thread
/// may ask. The memory must outlive it.
class KnownFiles {
 public:
  /// What would be done with a file that is not known: its outcome is known only for the same `tools` (the
  /// text of `toolVersions`; empty when that is not known), floors and options.
  struct Conditions {
    std::string tools;
    CompressionEngine::Thresholds floors;
    bool keepMetadata = true;
    bool stripMetadata = false;
  };
  KnownFiles(OutputMemory& memory, const Conditions& conditions, StopToken stop = {});

  /// A file that was compressed before, or of which nothing smaller could be made.
  struct Known {
    std::string hash;
    std::optional<double> score;  ///< of an output
  };
  /// Hashes an image of a supported kind, and nothing else. With `conversions`, a HEIC file counts whose PNG
  /// stands beside it. What cannot be read is not known. Throws `Interrupted`.
  std::optional<Known> find(const URL& url, bool conversions) const;
  /// For what `find` did not know: nothing smaller was found.
  void rememberNothingSmaller(const std::string& hash, std::int64_t bytes) const;

 private:
  bool hasConversionBeside(const URL& url, const OutputMemory::Output& conversion) const;

  OutputMemory& memory_;
  std::string conditions_;  ///< under which a file cannot be made smaller; empty when they are not known
  StopToken stop_;
};

}  // namespace tidewell
