// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/Workspace.h"

#include <algorithm>
#include <utility>

#include "TidewellDesktop/models/RowRecords.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {

Workspace::Workspace(const QDBusConnection& connection, QObject* parent)
    : QObject(parent),
      service_(connection),
      follower_(BatchFollower::Places{.store = store_}),
      undo_(store_),
      history_(store_) {
  connectService();
  connect(&intake_, &FileIntake::found, this, &Workspace::takeFound);
  connect(&intake_, &FileIntake::finished, this, &Workspace::finishLooking);
  connect(&follower_, &BatchFollower::updated, this, &Workspace::update);
  connect(&follower_, &BatchFollower::ended, this, &Workspace::finishBatch);
  connect(&settings_, &Settings::saveFailed, this, &Workspace::problem);
  connect(&undo_, &UndoWorker::progressed, this, &Workspace::changed);
  connect(&undo_, &UndoWorker::finished, this, [this] {
    service_.announceUndoDidChange();
    history_.reload();
    lookAfterRecords();
    Q_EMIT changed();
  });
}

void Workspace::connectService() {
  connect(&service_, &ServiceClient::historyDidChange, &follower_, &BatchFollower::readLatestResult);
  connect(&service_, &ServiceClient::opened, &follower_, &BatchFollower::taken);
  connect(&service_, &ServiceClient::openFailed, &follower_, &BatchFollower::refused);
  connect(&service_, &ServiceClient::stopped, &follower_, &BatchFollower::stopped);
  connect(&service_, &ServiceClient::serviceVanished, &follower_, &BatchFollower::vanished);
  connect(&service_, &ServiceClient::stateChanged, this, &Workspace::changed);
  connect(&service_, &ServiceClient::undoDidChange, this, [this] {
    history_.reload();
    lookAfterRecords();
  });
  connect(&service_, &ServiceClient::nothingToStop, this, [this] {
    isStopping_ = false;
    Q_EMIT changed();
  });
  connect(&service_, &ServiceClient::requestFailed, this, [this](const QString& words) {
    isStopping_ = false;
    Q_EMIT problem(words);
    Q_EMIT changed();
  });
}

void Workspace::add(std::vector<URL> named, bool again) {
  if (named.empty()) return;
  intake_.add(std::move(named), {.again = again, .keepMetadata = settings_.values().keepMetadata});
  Q_EMIT filesAdded();
  Q_EMIT changed();
}

void Workspace::takeFound(std::vector<FileRow> rows) {
  // What the service works on, or made, is in the list already, and stays what it is.
  const auto isKnown = [this](const FileRow& row) {
    if (given_.count(row.url.path()) > 0) return true;
    const auto index = files_.find(row.url);
    return row.state == RowState::alreadyCompressed && index && files_.row(*index).record;
  };
  rows.erase(std::remove_if(rows.begin(), rows.end(), isKnown), rows.end());
  for (const FileRow& row : rows)
    if (row.state == RowState::waiting) wait(row);
  forgetUndoable(rows);
  files_.add(std::move(rows));
  Q_EMIT changed();
}

void Workspace::finishLooking() {
  if (settings_.values().compressAtOnce && !intake_.isRunning()) compress();
  Q_EMIT changed();
}

void Workspace::compress() {
  std::vector<FileRow> rows;
  std::vector<URL> urls;
  for (int index = 0; index < files_.rowCount() && !waiting_.empty(); index++) {
    const FileRow& row = files_.row(index);
    if (waiting_.erase(row.url.path()) == 0) continue;
    given_.insert(row.url.path());
    rows.push_back(row);
    urls.push_back(row.url);
  }
  waiting_.clear();
  waitingBytes_ = 0;
  if (rows.empty()) return;
  if (!follower_.isFollowing()) {
    batchesBefore_ = follower_.batches().size();
    undoable_ = 0;
    ++run_;
  }
  follower_.start(std::move(rows));
  const auto& values = settings_.values();
  service_.open(urls, {.keepMetadata = values.keepMetadata, .keepTimes = values.keepTimes});
  Q_EMIT changed();
}

void Workspace::stop() {
  isStopping_ = true;
  service_.stop();
  Q_EMIT changed();
}

void Workspace::update(const std::vector<FileRow>& rows) {
  files_.update(rows);
  for (const FileRow& row : rows) {
    if (isDone(row.state)) given_.erase(row.url.path());
    if (row.state == RowState::waiting && given_.erase(row.url.path()) > 0) wait(row);
  }
}

void Workspace::wait(const FileRow& row) {
  if (waiting_.insert(row.url.path()).second) waitingBytes_ += row.before.value_or(0);
}

void Workspace::finishBatch() {
  given_.clear();
  isStopping_ = false;
  countUndoable();
  Q_EMIT batchEnded();
  Q_EMIT changed();
}

bool Workspace::isOfLastRun(const FileRow& row) const {
  if (!row.record || !row.batch) return false;
  const auto& batches = follower_.batches();
  const auto first = batches.begin() + static_cast<std::ptrdiff_t>(std::min(batchesBefore_, batches.size()));
  return std::find(first, batches.end(), *row.batch) != batches.end();
}

void Workspace::countUndoable() {
  undoable_ = 0;
  for (int index = 0; index < files_.rowCount(); index++) undoable_ += isOfLastRun(files_.row(index));
}

/// These rows take the places of what may be undoable. Counting anew for each portion that is found would
/// cost all rows each time.
void Workspace::forgetUndoable(const std::vector<FileRow>& replacements) {
  if (isRunning()) return;  // they are counted at its end
  std::unordered_set<int> places;
  for (const FileRow& row : replacements) {
    const auto index = files_.find(row.url);
    if (index && isOfLastRun(files_.row(*index))) places.insert(*index);
  }
  undoable_ -= std::ssize(places);
}

bool Workspace::canUndoBatch() const {
  return undoable_ > 0 && !isRunning() && !isUndoing();
}

void Workspace::clear() {
  if (isRunning()) return;
  intake_.stop();
  waiting_.clear();
  waitingBytes_ = 0;
  undoable_ = 0;
  files_.removeAll();
  Q_EMIT changed();
}

void Workspace::restore(const std::vector<FileRow>& rows) {
  ++findingRecords_;
  inBackground(
      this, [store = store_, rows] { return recordsOf(store, rows); },
      [this](const FoundRecords& found) {
        if (!found.problem.isEmpty()) {
          Q_EMIT problem(found.problem);
        } else if (found.records.empty()) {
          Q_EMIT problem(words(_("There is nothing left to restore.")));
        }
        --findingRecords_;
        if (!found.records.empty()) undo_.restore(found.records);
        Q_EMIT changed();
      });
  Q_EMIT changed();
}

void Workspace::undoBatch() {
  if (!canUndoBatch()) return;
  std::vector<FileRow> rows;
  for (int index = 0; index < files_.rowCount(); index++)
    if (isOfLastRun(files_.row(index))) rows.push_back(files_.row(index));
  restore(rows);
}

void Workspace::undoBatch(int run) {
  if (run == run_) undoBatch();
}

void Workspace::withRecord(const FileRow& row, std::function<void(const UndoRecord&)> use) {
  inBackground(
      this, [store = store_, row] { return recordsOf(store, {row}); },
      [this, use = std::move(use)](const FoundRecords& found) {
        if (!found.records.empty()) return use(found.records.front());
        Q_EMIT problem(found.problem.isEmpty() ? words(_("The record of this file is gone."))
                                               : found.problem);
      });
}

void Workspace::lookAfterRecords() {
  std::vector<FileRow> rows;
  for (int index = 0; index < files_.rowCount(); index++)
    if (files_.row(index).record) rows.push_back(files_.row(index));
  if (rows.empty()) return;
  inBackground(
      this, [store = store_, rows = std::move(rows)] { return rowsWithoutRecord(store, rows); },
      [this](const std::vector<FileRow>& gone) {
        std::vector<FileRow> current;  // those that nothing happened to meanwhile
        for (const FileRow& row : gone) {
          const auto index = files_.find(row.url);
          const bool isNewer =
              !index || files_.row(*index).batch != row.batch || given_.count(row.url.path()) > 0;
          if (!isNewer) current.push_back(row);
        }
        files_.update(current);
        countUndoable();
        Q_EMIT changed();
      });
}

}  // namespace tidewell::desktop
