// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The directory of the reports, of which the newest are kept. Any thread may call any operation.
class ReportDirectory {
 public:
  static constexpr std::size_t reportsKept = 100;
  /// How long the reports of other processes may go unnoticed.
  static constexpr std::chrono::milliseconds listingLifetime{50};

  explicit ReportDirectory(URL url) : url_(std::move(url)) {}

  /// Makes the directory with its parents where it is missing, writes one report and removes all but the
  /// newest: their names begin with a time stamp of equal length. Waits for no disk: nothing hangs on a
  /// report, and a batch may hold thousands of them. Throws `FileError` when the report is not written.
  void add(const std::string& name, std::string_view report);

 private:
  const URL url_;
  std::mutex mutex_;
  std::set<std::string> names_;  ///< of the reports there, the oldest first
  std::optional<std::chrono::steady_clock::time_point> listedAt_;
};

}  // namespace tidewell
