// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <exception>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/UndoActions.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Signals.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "CompressionKit/wording/Undo.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/ServiceNotice.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

using Outcome = UndoActions::Outcome;

class Restoration {
 public:
  Restoration(const RestoreOptions& options, Terminal& terminal)
      : options_(options),
        terminal_(terminal),
        history_(readHistory(terminal)),
        queue_(CompressionQueue::recommendedConcurrentTasks()),
        actions_(history_.store(), queue_) {}

  ExitStatus run() {
    // So that a file that is being restored is whole when the program ends.
    const TerminationSignals signals;
    {
      const SignalWatch watch(signals, [this] { queue_.stop(); });
      try {
        for (const auto* entry : selected()) one(entry->record);
      } catch (const Interrupted&) {
      }
      terminal_.showProgress("");
    }
    if (!options_.dryRun && !options_.to && !done_.empty()) noticeUndoDidChange();
    if (!done_.empty()) summarize();
    const int signal = signals.takeAll();
    return signal != 0 ? static_cast<ExitStatus>(128 + signal) : status_.value();
  }

 private:
  std::vector<const History::Entry*> selected() {
    const std::optional<Date> now = options_.to ? std::nullopt : std::optional(Date::now());
    std::vector<const History::Entry*> entries;
    std::unordered_set<const History::Entry*> known;
    for (const auto& text : options_.selectors) {
      const auto [status, selection] = select(history_, text, terminal_);
      status_.add(status);
      for (const auto* entry : history_.undoOrder(selection, now)) {
        if (known.insert(entry).second) entries.push_back(entry);
      }
    }
    if (options_.to && !entries.empty()) files::createDirectories(folder());
    return entries;
  }

  URL folder() const { return URL::file(*options_.to); }

  void one(const UndoRecord& record) {
    UndoActions::Result result;
    // It may be compressed just now, and then it is waited for.
    terminal_.showProgress(printable(record.originalPath));
    if (options_.to) {
      result = actions_.copyOut(record, folder());
    } else if (options_.dryRun) {
      const UndoRecord*& above = above_[record.convertedPath.value_or(record.originalPath)];
      result = actions_.check(record, above);
      above = &record;
    } else {
      result = actions_.restore(record);
    }
    status_.add(statusOf(result.outcome));
    if (result.outcome == Outcome::done)
      done_.insert(options_.to ? result.file->path() : record.originalPath);
    if (statusOf(result.outcome) == done) {
      terminal_.print(told(record, result));
    } else {
      tellOutcome(record, actions_, result, terminal_);
    }
  }

  std::string told(const UndoRecord& record, const UndoActions::Result& result) const {
    const std::string name = printable(record.originalPath);
    if (result.outcome == Outcome::nothingToDo) return nothingToRestoreText(record, result);
    const std::string size = sizeText(record.originalBytes);
    if (options_.to)
      return filled(_("{1}: copied to {2} ({3})"), {name, printable(result.file->path()), size});
    return filled(options_.dryRun ? _("{1}: would come back ({2})") : _("{1}: is back ({2})"), {name, size});
  }

  void summarize() {
    if (options_.to) {
      terminal_.print(counted("{1} backup copied", "{1} backups copied", std::ssize(done_)));
    } else if (options_.dryRun) {
      terminal_.print(
          counted("{1} file would be restored", "{1} files would be restored", std::ssize(done_)));
    } else {
      terminal_.print(counted("{1} file restored", "{1} files restored", std::ssize(done_)));
    }
  }

  const RestoreOptions& options_;
  Terminal& terminal_;
  History history_;
  CompressionQueue queue_;
  UndoActions actions_;
  std::map<std::string, const UndoRecord*> above_;  ///< of each file, what a dry run has taken as restored
  StatusOfMany status_;
  std::unordered_set<std::string> done_;  ///< a file that went back by several steps is one
};

}  // namespace

int runRestore(const RestoreOptions& options, Terminal& terminal) {
  return Restoration(options, terminal).run();
}

}  // namespace tidewell
