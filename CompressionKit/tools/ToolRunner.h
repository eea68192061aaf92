// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/platform/Confinement.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Runs the command-line tools of one directory. A value without state; any number of threads may use it.
class ToolRunner {
 public:
  /// Nothing is checked. A stop of the token ends running tools and makes `run` throw `Interrupted`.
  explicit ToolRunner(URL directory, StopToken stop = {});

  const URL& directory() const { return directory_; }
  const StopToken& stopToken() const { return stop_; }

  /// The tool is a file that this user may execute.
  bool has(std::string_view name) const;

  /// Runs `directory()`/tool with exactly these arguments, confined to `files`, and returns the first 1 MiB
  /// of its standard output as repaired UTF-8. Blocks until the tool has ended; after `timeout` seconds it is
  /// stopped (SIGTERM, one second later SIGKILL) and reaped. Throws `CompressionError` (`toolMissing`,
  /// `toolFailed`, `fileOperation`), `FileError`, or `Interrupted`. Nothing is left behind on any path.
  /// `started` is called once the tool runs.
  std::string run(std::string_view tool, const std::vector<std::string>& arguments, double timeout,
                  const Confinement& files = {}, const std::function<void()>& started = {}) const;

 private:
  URL directory_;
  StopToken stop_;
};

/// The environment that tools run in: ours, with settings that make them faster where the user has not
/// chosen any.
std::vector<std::string> toolEnvironment();

}  // namespace tidewell
