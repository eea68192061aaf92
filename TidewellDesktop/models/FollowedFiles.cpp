// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/FollowedFiles.h"

#include <algorithm>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Text.h"
#include "TidewellDesktop/models/RowTraces.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

using Clock = std::chrono::steady_clock;

/// Names of reports are rounded to milliseconds.
constexpr double rounding = 0.001;

/// One key for all ways to write a path, and for the repaired one that reports have: the service may know a
/// file by another than the list does.
std::string keyOf(const std::string& path) {
  return repairedUTF8(URL::file(path).standardized().path());
}

}  // namespace

Date FollowedFiles::Followed::startNow() const {
  const double passed = std::chrono::duration<double>(Clock::now() - startTicks).count();
  return startedAt.adding(std::min(0.0, Date::now().since(startedAt) - passed));
}

int FollowedFiles::start(std::vector<FileRow> files, Date startedAt) {
  if (!isFollowing()) forget();
  begun_.clear();
  ++started_;
  for (FileRow& row : files) {
    byPath_[keyOf(row.url.path())].push_back(followed_.size());
    row = {.url = std::move(row.url), .before = row.before};
    followed_.push_back(
        {.row = std::move(row), .startedAt = startedAt, .startTicks = Clock::now(), .number = started_});
  }
  unsettled_ += files.size();
  return started_;
}

void FollowedFiles::forget() {
  followed_.clear();
  byPath_.clear();
  byLock_.clear();
  changed_.clear();
}

Date FollowedFiles::earliestStart() const {
  Date earliest = Date::now();
  for (const Followed& file : followed_) earliest = std::min(earliest, file.startNow());
  return earliest;
}

std::vector<FollowedFiles::Followed>::const_iterator FollowedFiles::firstOf(int start) const {
  return std::ranges::lower_bound(followed_, start, {}, &Followed::number);
}

std::vector<URL> FollowedFiles::filesOf(int start) const {
  std::vector<URL> files;
  for (auto file = firstOf(start); file != followed_.end() && file->number == start; ++file)
    files.push_back(file->row.url);
  return files;
}

void FollowedFiles::learnLocks(int start, const std::vector<std::string>& names) {
  const auto first = firstOf(start);
  if (first == followed_.end() || first->number != start) return;
  auto index = static_cast<std::size_t>(first - followed_.begin());
  for (const std::string& name : names) {
    byLock_[name].push_back(index);
    if (begun_.contains(name)) begin(followed_[index]);
    ++index;
  }
}

void FollowedFiles::begin(const std::string& lock) {
  begun_.insert(lock);
  const auto files = byLock_.find(lock);
  if (files == byLock_.end()) return;
  for (const std::size_t index : files->second) begin(followed_[index]);
}

void FollowedFiles::begin(Followed& file) {
  if (file.row.state != RowState::waiting) return;
  file.row.state = RowState::working;
  change(file);
}

// --- How a start is answered, and ends ---

void FollowedFiles::taken(const QString& process) {
  if (answered_ == started_) return;
  ++answered_;
  for (Followed& file : followed_) {
    if (file.number == answered_) file.takenBy = process;
  }
}

void FollowedFiles::refused(const QString& why) {
  if (answered_ == started_) return;
  ++answered_;
  for (Followed& file : followed_) {
    if (file.number == answered_ && !file.settled) fail(file, why);
  }
}

void FollowedFiles::stopped() {
  stopped_ = answered_;
}

void FollowedFiles::endStopped() {
  const QString why = words(_("stopped"));
  for (Followed& file : followed_) {
    if (file.settled || file.number > stopped_) continue;
    const bool isUntouched = !isDone(file.row.state) && !file.row.record;
    isUntouched ? giveBack(file) : giveUp(file, why, why);
  }
}

void FollowedFiles::endTaken(const std::vector<QString>& processes) {
  for (Followed& file : followed_) {
    if (file.settled || std::ranges::find(processes, file.takenBy) == processes.end()) continue;
    giveUp(file, words(_("the background service ended before it said why")),
           words(_("the background service ended before the file was done")));
  }
}

/// Of a file that nothing more will come of: it failed, or it was not done.
void FollowedFiles::giveUp(Followed& file, const QString& whyFailed, const QString& whyNotDone) {
  if (!isDone(file.row.state)) return fail(file, whyNotDone);
  if (file.row.state == RowState::failed && file.row.why.isEmpty()) {
    file.row.why = whyFailed;
    change(file);
  }
  settle(file);
}

/// A stopped file is as it was, and waits as it did.
void FollowedFiles::giveBack(Followed& file) {
  file.row = {.url = std::move(file.row.url), .before = file.row.before};
  change(file);
  settle(file);
}

void FollowedFiles::fail(Followed& file, const QString& why) {
  file.row.state = RowState::failed;
  file.row.why = why;
  change(file);
  settle(file);
}

void FollowedFiles::settle(Followed& file) {
  file.settled = true;
  --unsettled_;
  // The service takes a file once, in whatever ways its path is written.
  const FileRow& row = file.row;
  const URL url = row.url.standardized();
  for (const std::size_t index : byPath_[keyOf(row.url.path())]) {
    Followed& other = followed_[index];
    if (other.settled || other.number != file.number || other.row.url.standardized() != url) continue;
    const bool isSmaller = row.state == RowState::replaced || row.state == RowState::converted;
    other.row = {.url = other.row.url,
                 .state = isSmaller ? RowState::alreadyCompressed : row.state,
                 .before = isSmaller ? row.after : row.before,
                 .after = row.after,
                 .why = row.why};
    other.settled = true;
    --unsettled_;
    change(other);
  }
}

void FollowedFiles::change(const Followed& file) {
  changed_.push_back(static_cast<std::size_t>(&file - followed_.data()));
}

std::vector<FileRow> FollowedFiles::takeChanges() {
  std::ranges::sort(changed_);
  changed_.erase(std::unique(changed_.begin(), changed_.end()), changed_.end());
  std::vector<FileRow> rows;
  for (const std::size_t index : std::exchange(changed_, {})) rows.push_back(followed_[index].row);
  return rows;
}

// --- What traces mean ---

template <typename Condition>
FollowedFiles::Followed* FollowedFiles::find(const std::string& path, Date moment, Condition condition) {
  const auto files = byPath_.find(keyOf(path));
  if (files == byPath_.end()) return nullptr;
  for (const std::size_t index : files->second) {
    Followed& file = followed_[index];
    if (moment >= file.startNow() && condition(file)) return &file;
  }
  return nullptr;
}

void FollowedFiles::take(const Traces& traces) {
  for (const UndoRecord& record : traces.records) takeRecord(record);
  for (const Report& report : traces.reports) takeReport(report);
  if (traces.latestResult) takeResult(*traces.latestResult);
}

void FollowedFiles::takeRecord(const UndoRecord& record) {
  const std::string path = URL::file(record.originalPath).standardized().path();
  const auto isExact = [&](const Followed& file) { return file.row.url.standardized().path() == path; };
  Followed* file = find(record.originalPath, record.createdAt, [&](const Followed& candidate) {
    return isExact(candidate) && candidate.row.record == record.id;
  });
  if (!file) {
    file = find(record.originalPath, record.createdAt, [&](const Followed& candidate) {
      return isExact(candidate) && !candidate.settled && !candidate.row.batch;
    });
  }
  if (!file || file->settled) return;
  apply(record, file->row);
  change(*file);
  if (std::ranges::find(batches_, record.sessionID) == batches_.end()) batches_.push_back(record.sessionID);
}

void FollowedFiles::takeReport(const Report& report) {
  Followed* const file = find(report.source, report.startedAt.adding(rounding),
                              [](const Followed& candidate) { return !candidate.settled; });
  if (!file) return;
  apply(report, file->row);
  change(*file);
  if (file->row.state != RowState::failed) settle(*file);  // why it failed the result will tell
}

void FollowedFiles::takeResult(const BackgroundBatchResult& result) {
  // It may be another program's batch.
  const bool isOurs =
      std::ranges::find(batches_, result.sessionID) != batches_.end() ||
      std::ranges::all_of(result.items, [&](const auto& item) {
        return find(item.path, result.finishedAt, [](const Followed&) { return true; }) != nullptr;
      });
  if (!isOurs) return;
  for (const auto& item : result.items) takeItem(item, result.finishedAt);
}

void FollowedFiles::takeItem(const BackgroundBatchResult::Item& item, Date finishedAt) {
  Followed* const file =
      find(item.path, finishedAt, [](const Followed& candidate) { return !candidate.settled; });
  if (!file) return;
  if (item.error == Interrupted().what()) return giveBack(*file);
  apply(item, file->row);
  change(*file);
  settle(*file);
}

}  // namespace tidewell::desktop
