// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <string>
#include <vector>

#include "CompressionKit/batch/History.h"
#include "CompressionKit/batch/UndoActions.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Signals.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Commands.h"
#include "Tidewell/Output.h"
#include "Tidewell/Records.h"
#include "Tidewell/ServiceNotice.h"
#include "Tidewell/Terminal.h"

namespace tidewell {
namespace {

/// Of an interrupted replacement the backup may be all that is left of the original: "all" does not mean it.
History::Selection allCommitted(const History& history, std::int64_t& interrupted) {
  History::Selection all{.kind = History::Kind::batch, .entries = {}};
  for (const auto& entry : history.entries()) {
    if (entry.record.state == UndoRecord::State::committed) {
      all.entries.push_back(&entry);
    } else {
      ++interrupted;
    }
  }
  return all;
}

std::int64_t backupBytes(const UndoStore& store, const UndoRecord& record) {
  try {
    return files::resourceValues(store.backupURL(record)).bytes;
  } catch (const FileError&) {
    return 0;
  }
}

}  // namespace

int runForget(const ForgetOptions& options, Terminal& terminal) {
  const History history = readHistory(terminal);
  StatusOfMany status;
  std::int64_t interrupted = 0, forgotten = 0, bytes = 0;
  History::Selection selection;
  if (options.selector == "all") {
    selection = allCommitted(history, interrupted);
  } else {
    auto [found, named] = select(history, options.selector, terminal);
    if (found != done) return found;
    selection = std::move(named);
  }
  const TerminationSignals signals;
  CompressionQueue queue(CompressionQueue::recommendedConcurrentTasks());
  UndoActions actions(history.store(), queue);
  const Date now = Date::now();
  try {
    const SignalWatch watch(signals, [&queue] { queue.stop(); });
    for (const auto* entry : selection.entries) {
      const UndoRecord& record = entry->record;
      if (options.olderThan && now.since(record.createdAt) < *options.olderThan) continue;
      const std::int64_t freed = backupBytes(history.store(), record);
      const auto result = actions.forget(record);
      status.add(statusOf(result.outcome));
      if (result.outcome == UndoActions::Outcome::done) ++forgotten, bytes += freed;
      tellOutcome(record, actions, result, terminal);
    }
  } catch (const Interrupted&) {
  }
  if (forgotten > 0) noticeUndoDidChange();
  terminal.print(
      filled(_("{1}, {2} of backups removed"),
             {counted("{1} record forgotten", "{1} records forgotten", forgotten), sizeText(bytes)}));
  if (interrupted > 0) {
    terminal.tell(counted("{1} interrupted record stays; forget it by its ID",
                          "{1} interrupted records stay; forget them by their IDs", interrupted));
  }
  const int signal = signals.takeAll();
  return signal != 0 ? 128 + signal : status.value();
}

}  // namespace tidewell
