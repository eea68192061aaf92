// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/history/UndoWorker.h"

#include <QMetaObject>
#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"
#include "CompressionKit/wording/Texts.h"
#include "CompressionKit/wording/Undo.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

using Action = UndoSummary::Action;
using Outcome = UndoActions::Outcome;

/// Nothing where there is nothing to say beyond the count.
QString noteOf(Action action, const UndoRecord& record, const UndoActions::Result& result) {
  if (action == Action::copyOut && result.outcome == Outcome::done) {
    return words(filled(
        _("{1}: copied to {2} ({3})"),
        {printable(record.originalPath), printable(result.file->path()), sizeText(record.originalBytes)}));
  }
  if (action == Action::restore && result.outcome == Outcome::nothingToDo) {
    return words(nothingToRestoreText(record, result));
  }
  return {};
}

QString problemOf(const UndoStore& store, const UndoRecord& record, const UndoActions::Result& result) {
  const std::string problem = problemText(record, result);
  const bool mayBeCopied = result.outcome == Outcome::edited || result.outcome == Outcome::expired;
  if (!mayBeCopied || !files::exists(store.backupURL(record))) return words(problem);
  return words(filled(_("{1}; its backup can be copied out"), {problem}));
}

}  // namespace

QString UndoSummary::text() const {
  std::string text;
  switch (action) {
    case Action::restore:
      text = counted("{1} file restored", "{1} files restored", done);
      break;
    case Action::forget:
      text = counted("{1} record forgotten", "{1} records forgotten", done);
      break;
    case Action::copyOut:
      text = counted("{1} backup copied", "{1} backups copied", done);
      break;
  }
  if (!problems.isEmpty()) {
    text = filled(_("{1}, {2}"),
                  {text, counted("{1} was not possible", "{1} were not possible", problems.size())});
  }
  if (isCutShort) text = filled(_("{1}, {2}"), {text, _("the rest was stopped")});
  return words(text);
}

UndoWorker::UndoWorker(const UndoStore& store, QObject* parent)
    : QObject(parent), queue_(CompressionQueue::recommendedConcurrentTasks()), actions_(store, queue_) {
  qRegisterMetaType<UndoSummary>();
  thread_.setMaxThreadCount(1);
}

UndoWorker::~UndoWorker() {
  queue_.stop();
  thread_.waitForDone();
}

void UndoWorker::restore(std::vector<UndoRecord> records) {
  std::ranges::stable_sort(
      records, [](const UndoRecord& a, const UndoRecord& b) { return a.createdAt > b.createdAt; });
  start(Action::restore, std::move(records),
        [this](const UndoRecord& record) { return actions_.restore(record); });
}

void UndoWorker::forget(std::vector<UndoRecord> records) {
  start(Action::forget, std::move(records),
        [this](const UndoRecord& record) { return actions_.forget(record); });
}

void UndoWorker::copyOut(const UndoRecord& record, const URL& folder) {
  start(Action::copyOut, {record},
        [this, folder](const UndoRecord& each) { return actions_.copyOut(each, folder); });
}

void UndoWorker::stop() {
  ++stops_;
}

void UndoWorker::start(Action action, std::vector<UndoRecord> records, Work work) {
  if (records.empty()) return;
  ++wishes_;
  Q_EMIT progressed(0, static_cast<int>(records.size()));
  // The end of this waits for the thread.
  const auto carry = [this, action, records = std::move(records), work = std::move(work),
                      stops = stops_.load()] { return carryOut(action, records, work, stops); };
  const auto done = [this](UndoSummary&& summary) {
    --wishes_;
    Q_EMIT finished(summary);
  };
  inBackground(this, carry, done, &thread_);
}

UndoSummary UndoWorker::carryOut(Action action, const std::vector<UndoRecord>& records, const Work& work,
                                 int stops) {
  UndoSummary summary;
  summary.action = action;
  int handled = 0;
  std::set<std::string> back;
  try {
    for (const auto& record : records) {
      if (stops_ != stops) throw Interrupted();
      const auto result = work(record);
      // A file that went back by several steps is one.
      if (result.outcome == Outcome::done &&
          (action != Action::restore || back.insert(record.originalPath).second)) {
        ++summary.done;
      }
      if (const QString note = noteOf(action, record, result); !note.isEmpty()) summary.notes << note;
      if (const QString problem = problemOf(store(), record, result); !problem.isEmpty()) {
        summary.problems << problem;
      }
      const auto tell = [this, now = ++handled, of = static_cast<int>(records.size())] {
        Q_EMIT progressed(now, of);
      };
      QMetaObject::invokeMethod(this, tell, Qt::QueuedConnection);
    }
  } catch (const Interrupted&) {
    summary.isCutShort = true;
  }
  return summary;
}

}  // namespace tidewell::desktop
