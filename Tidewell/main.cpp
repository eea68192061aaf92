// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <span>
#include <string>
#include <variant>

#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/CommandLine.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

/// A standard descriptor that is closed would be given to the next file that is opened. Something that can
/// only be used the wrong way round takes its place.
void takeClosedDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    [[maybe_unused]] const int taken = open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

struct Runner {
  Terminal& terminal;

  int operator()(const HistoryOptions& options) const { return runHistory(options, terminal); }
  int operator()(const RestoreOptions& options) const { return runRestore(options, terminal); }
  int operator()(const CompareOptions& options) const { return runCompare(options, terminal); }
  int operator()(const ExplainOptions& options) const { return runExplain(options, terminal); }
  int operator()(const ForgetOptions& options) const { return runForget(options, terminal); }
  int operator()(const StatusOptions& options) const { return runStatus(options, terminal); }
  int operator()(const CompressCommandOptions& options) const { return runCompress(options, terminal); }
  int operator()(const CompletionOptions& options) const { return runCompletion(options, terminal); }
  int operator()(const HelpOptions& options) const { return runHelp(options, terminal); }
  int operator()(const VersionOptions&) const {
    terminal.print("tidewell " TIDEWELL_VERSION);
    return done;
  }
};

int run(std::span<const char* const> arguments, Terminal& terminal) {
  try {
    const ParsedCommand parsed = parseCommandLine(arguments);
    terminal.setColor(parsed.color);
    return std::visit(Runner{terminal}, parsed.options);
  } catch (const UsageError& error) {
    terminal.complain(error.what());
    terminal.tell(_("“tidewell help” tells more."));
    return misused;
  } catch (...) {
    terminal.complain(describedError(std::current_exception()));
    return failed;
  }
}

}  // namespace
}  // namespace tidewell

int main(int argc, char** argv) {
  tidewell::takeClosedDescriptors();
  // Failed writes are told by their error.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  tidewell::Terminal terminal;
  try {
    tidewell::prepareTexts(tidewell::locations::executableDirectory());
  } catch (const std::exception&) {
    // Without its own place, the program speaks English.
  }
  const std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc));
  return terminal.finish(tidewell::run(arguments.subspan(1), terminal));
}
