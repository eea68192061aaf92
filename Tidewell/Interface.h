// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewell {

/// One option, told once: what the command line takes, help and the completions are made of it.
struct OptionSpec {
  const char* names;  ///< "-n,--dry-run"; the last is the long one
  const char* value;  ///< what follows it, "DIR" or "auto|never|always"; null for a switch
  const char* text;   ///< to be translated

  std::string_view longName() const;  ///< without its dashes
};

struct CommandSpec {
  const char* name;
  const char* arguments;  ///< the words after it, as the usage shows them
  const char* summary;    ///< to be translated
  std::size_t minimumWords;
  std::size_t maximumWords;
  std::vector<OptionSpec> options;  ///< those that every command has among them
};

/// In the order in which the help lists them.
std::span<const CommandSpec> commandSpecs();
/// Null when there is none of that name.
const CommandSpec* commandSpec(std::string_view name);

}  // namespace tidewell
