// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>

#include "CompressionKit/batch/Batch.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Signals.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/CompressReport.h"
#include "Tidewell/Output.h"
#include "Tidewell/Progress.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

/// A batch that may exceed the store is told before it starts, unless counting it takes longer.
constexpr auto surveyPatience = std::chrono::milliseconds(500);

bool readsStandardInput(const CompressCommandOptions& options) {
  return options.files0From == "-";
}

/// The paths of the command line, then those of the list. Throws `FileError`.
PathSource pathsOf(const CompressCommandOptions& options, const StopToken& stop) {
  PathSource named = namedPaths(options.paths);
  if (!options.files0From) return named;
  const bool standardInput = readsStandardInput(options);
  const URL file = URL::file(standardInput ? "/dev/stdin" : *options.files0From);
  Descriptor descriptor =
      standardInput ? Descriptor(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)) : files::openForReading(file);
  if (!descriptor) throw FileError("读取", file.path(), errno);
  return [named = std::move(named), listed = nulSeparatedPaths(std::move(descriptor), file, stop)] {
    auto path = named();
    return path ? path : listed();
  };
}

WalkOptions walkOptions(const CompressCommandOptions& options) {
  WalkOptions result{
      .hidden = options.hidden, .excludes = options.excludes, .leftOut = {locations::undoStore()}};
  if (options.output) result.leftOut.push_back(URL::file(*options.output));
  return result;
}

BatchOptions batchOptions(const CompressCommandOptions& options) {
  BatchOptions result;
  result.compression.keepMetadata = !options.strip;
  result.compression.stripMetadata = options.strip;
  result.compression.keepTimes = !options.newTimes;
  if (options.minimumPercent > 0 || options.minimumBytes > 0) {
    result.compression.minimumSaving =
        MinimumSaving{.percent = options.minimumPercent, .bytes = options.minimumBytes};
  }
  result.again = options.again;
  result.dryRun = options.dryRun;
  if (options.output) result.output = URL::file(*options.output);
  return result;
}

CompressionEngine::Thresholds thresholds(double minimumScore) {
  const CompressionEngine::Thresholds floors;
  return {.quality = std::max(floors.quality, minimumScore),
          .pngQuality = std::max(floors.pngQuality, minimumScore),
          .gifQuality = std::max(floors.gifQuality, minimumScore)};
}

int concurrentTasks(const CompressCommandOptions& options) {
  const int recommended = CompressionQueue::recommendedConcurrentTasks();
  return std::min(options.jobs.value_or(recommended), recommended);
}

void warnOfLargeBatch(const Survey& survey, Terminal& terminal) {
  if (!survey.exceeds(maximumBackupBytes, surveyPatience)) return;
  terminal.tell(
      filled(_("The backups of this batch may exceed {1}; then the oldest go, and only what has a backup can "
               "be restored."),
             {sizeText(maximumBackupBytes)}));
}

}  // namespace

int runCompress(const CompressCommandOptions& options, Terminal& terminal) {
  const TerminationSignals signals;
  CompressionQueue queue(concurrentTasks(options));
  BatchStop stop(queue);
  terminal.setStop(stop.token());
  OutputMemory memory;
  Batch batch(CompressionEngine(ToolRunner(locations::toolsDirectory(), stop.token()), UndoStore(),
                                thresholds(options.minimumScore.value_or(0))),
              queue, &memory);
  const BatchOptions batchOptions = tidewell::batchOptions(options);

  // What comes through a pipe can be read only once.
  std::unique_ptr<Survey> survey;
  if (!readsStandardInput(options)) {
    survey = std::make_unique<Survey>(pathsOf(options, stop.token()), walkOptions(options));
    if (!options.dryRun && !options.output && !options.quiet) warnOfLargeBatch(*survey, terminal);
  }
  Progress progress(terminal, survey.get());
  CompressReporter reporter(options, terminal, progress, batchOptions.sessionID);
  {
    const SignalWatch watch(signals, [&stop] { stop.stop(); });
    FolderWalk walk(pathsOf(options, stop.token()), walkOptions(options), stop.token());
    batch.run([&walk] { return walk.next(); }, batchOptions,
              {.started = [&](const Found& found) { progress.started(found); },
               .finished =
                   [&](const FileReport& report) {
                     progress.finished(report);
                     reporter.tell(report);
                     if (terminal.isClosed()) stop.stop();
                   }});
  }
  terminal.showProgress("");
  const CompressTotals& totals = reporter.totals();
  reporter.summarize(restorable(batch.engine().undo(), batchOptions.sessionID, totals.records));
  if (const int signal = signals.takeAll(); signal != 0) return 128 + signal;
  terminal.flush();
  if (terminal.isClosed()) return 128 + SIGPIPE;  // its reader has left, if only before the last line
  return totals.failed != 0 ? failed : done;
}

}  // namespace tidewell
