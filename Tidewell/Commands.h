// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Date.h"

namespace tidewell {

class Terminal;

/// What the program tells by its exit status. Ended by a signal, it is 128 + the signal's number.
enum ExitStatus : int {
  done = 0,         ///< or nothing to do
  failed = 1,       ///< a file failed, or a named path is missing; also when failures are mixed
  misused = 2,      ///< the command line cannot be understood
  unknownID = 3,    ///< no such record or batch
  gone = 4,         ///< backup or report missing or expired
  editedSince = 5,  ///< the file is not what we made of it
};

// What the command line asks of each command. Paths are as typed, so relative ones are meant from the current
// directory.

struct CompressCommandOptions {
  std::vector<std::string> paths;
  std::optional<std::string> files0From;  ///< a file of names that end in NUL; "-" is standard input
  std::vector<std::string> excludes;      ///< globs
  bool hidden = false;
  bool dryRun = false;
  std::optional<std::string> output;  ///< the folder that copies go to
  double minimumPercent = 0;          ///< 0 to 100
  std::int64_t minimumBytes = 0;
  std::optional<double> minimumScore;
  bool strip = false;
  bool newTimes = false;
  bool again = false;
  std::optional<int> jobs;  ///< at least 1
  bool verbose = false;
  bool quiet = false;
  bool json = false;
};

struct HistoryOptions {
  bool json = false;
  std::optional<Date> since;
  std::vector<std::string> paths;
};

struct RestoreOptions {
  bool dryRun = false;
  std::optional<std::string> to;
  std::vector<std::string> selectors;  ///< IDs, "latest", paths; at least one
};

struct CompareOptions {
  std::optional<std::string> output;   ///< the picture to write
  std::vector<std::string> selectors;  ///< an ID or path, or two files
};

struct ExplainOptions {
  bool json = false;
  std::string selector;
};

struct ForgetOptions {
  std::optional<double> olderThan;  ///< seconds
  std::string selector;             ///< an ID or "all"
};

struct StatusOptions {
  bool json = false;
};

struct CompletionOptions {
  std::string shell;  ///< "bash", "zsh" or "fish"
};

struct HelpOptions {
  std::optional<std::string> command;
};

// Each returns the exit status. What they throw ends the program with a message and status 1.
int runCompress(const CompressCommandOptions& options, Terminal& terminal);
int runHistory(const HistoryOptions& options, Terminal& terminal);
int runRestore(const RestoreOptions& options, Terminal& terminal);
int runCompare(const CompareOptions& options, Terminal& terminal);
int runExplain(const ExplainOptions& options, Terminal& terminal);
int runForget(const ForgetOptions& options, Terminal& terminal);
int runStatus(const StatusOptions& options, Terminal& terminal);
int runCompletion(const CompletionOptions& options, Terminal& terminal);
int runHelp(const HelpOptions& options, Terminal& terminal);

}  // namespace tidewell
