// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "Tidewell/Commands.h"
#include "Tidewell/Interface.h"
#include "Tidewell/Terminal.h"

namespace tidewell {

/// A command line that cannot be understood; `what()` is told, and the status is 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct VersionOptions {};

/// What one command line asks for.
struct ParsedCommand {
  std::variant<CompressCommandOptions, HistoryOptions, RestoreOptions, CompareOptions, ExplainOptions,
               ForgetOptions, StatusOptions, CompletionOptions, HelpOptions, VersionOptions>
      options;
  Terminal::Color color = Terminal::Color::automatic;
};

/// The arguments follow the program's name. Throws `UsageError`.
ParsedCommand parseCommandLine(std::span<const char* const> arguments);

}  // namespace tidewell
