// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A diagnostics report as it lies on the disk.
struct Report {
  std::string source;  ///< path, repaired where it was no UTF-8
  Date startedAt;
  std::string outcome;  ///< "replaced", "converted", "skipped" or "failed"
  std::optional<std::string> selectedEncoder = std::nullopt;
  std::optional<std::string> profile = std::nullopt;
  std::vector<CandidateDiagnostic> attempts;

  /// Nothing for text that is no report.
  static std::optional<Report> parse(std::string_view json);
  /// Whether a file of the diagnostics directory is one by its name, which tells when it was started.
  static std::optional<Date> startOf(std::string_view name);
  /// The report in a file, with the start that its name tells; nothing for a file that is none. Throws
  /// `FileError`.
  static std::optional<Report> read(const URL& file);
};

/// The newest report on the file `source` among those in `directory` that was started no later than `before`.
/// Only the newest reports are kept, so there may be none. Reports that cannot be read are passed over;
/// throws `FileError` when the directory exists and cannot be listed.
std::optional<Report> newestReport(const URL& directory, const std::string& source, Date before);

}  // namespace tidewell
