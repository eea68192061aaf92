// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Remembers by their hashes what was compressed before, so that no picture loses twice: every output, and
/// every file for which nothing smaller was found. No path is kept. An SQLite file that several processes
/// share.
///
/// It is a help and never a condition: nothing here throws, and whatever goes wrong (a full disk, a lock that
/// lasts, a folder that may not be written, a file of a later version) costs what would have been remembered.
/// A damaged file goes aside, as "outputs.db.damaged", and another is begun.
class OutputMemory {
 public:
  struct Output {
    std::string hash;
    std::string madeFrom;  ///< the original's hash
    Date when;
    std::optional<std::string> encoder;
    std::optional<double> score;
    std::int64_t bytes = 0;
    std::string tools;  ///< names and versions

    bool operator==(const Output&) const = default;
  };

  /// Rows beyond this many go: first the oldest that are no outputs, for they cost work and no quality.
  static constexpr std::int64_t defaultMaximumRows = 200'000;

  /// Without a file: "outputs.db" in the state directory. Opens nothing before it is needed.
  explicit OutputMemory(std::optional<URL> file = std::nullopt,
                        std::int64_t maximumRows = defaultMaximumRows);
  OutputMemory(const OutputMemory&) = delete;
  OutputMemory& operator=(const OutputMemory&) = delete;
  ~OutputMemory();

  // Any thread may call these. Each blocks for the disk, and for another process for some seconds at most.

  /// The sizes of all that is known: a file of another size need not be hashed.
  std::unordered_set<std::int64_t> sizes() noexcept;

  /// The output that has this hash.
  std::optional<Output> output(const std::string& hash) noexcept;
  /// The newest output that was made from what has this hash.
  std::optional<Output> madeFrom(const std::string& originalHash) noexcept;
  void remember(const Output& output) noexcept;

  /// Nothing smaller was found for what has this hash, under the same `conditions`: a text that names all
  /// that may change the answer, above all the versions of the tools.
  bool knowsNothingSmaller(const std::string& hash, const std::string& conditions) noexcept;
  void rememberNothingSmaller(const std::string& hash, std::int64_t bytes,
                              const std::string& conditions) noexcept;

 private:
  class Database;
  template <typename Operation>
  auto attempt(Operation operation) noexcept -> decltype(operation(std::declval<Database&>()));
  std::optional<Output> find(const char* query, const std::string& hash) noexcept;
  void setAside() noexcept;
  void trim(Database& database);

  const URL file_;
  const std::int64_t maximumRows_;
  std::mutex mutex_;
  std::unique_ptr<Database> database_;
  int patience_ = 3;  ///< with locks that last; without any left, nothing is tried again in this process
  std::int64_t additions_ = 0;
};

/// Names and versions of the tools in a directory, out of its "tools.json"; empty where that cannot be read.
std::string toolVersions(const URL& toolsDirectory);

}  // namespace tidewell
