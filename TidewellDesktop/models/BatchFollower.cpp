// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/BatchFollower.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/queue/ExecutionPermit.h"
#include "CompressionKit/wording/Errors.h"
#include "TidewellDesktop/support/Background.h"
#include "TidewellDesktop/support/Words.h"

namespace tidewell::desktop {
namespace {

using Clock = std::chrono::steady_clock;

/// What comes within this time is read and shown together. Far more than a hundred reports, of which the
/// oldest would go, cannot.
constexpr int gatheringMilliseconds = 40;
/// A service that was stopped has soon written the last of what it had begun. Two of its batches that end at
/// once leave one result, so that some files are told of nowhere.
constexpr int stopMilliseconds = 3000;
/// Names of reports are rounded to milliseconds.
constexpr double rounding = 0.001;

/// The start as the wall clock has it now, which may have been set back meanwhile.
Date startNow(Date startedAt, Clock::time_point startTicks) {
  const double passed = std::chrono::duration<double>(Clock::now() - startTicks).count();
  return startedAt.adding(std::min(0.0, Date::now().since(startedAt) - passed));
}

/// One key for all ways to write a path, and for the repaired one that reports have: the service may know a
/// file by another than the list does.
std::string keyOf(const std::string& path) {
  return repairedUTF8(URL::file(path).standardized().path());
}

RowState stateOf(std::string_view outcome) {
  return outcome == "replaced"    ? RowState::replaced
         : outcome == "converted" ? RowState::converted
         : outcome == "skipped"   ? RowState::skipped
                                  : RowState::failed;
}

QString whySkipped(const Report& report) {
  const auto has = [&](std::string_view reason) {
    return std::ranges::find(report.attempts, reason, &CandidateDiagnostic::reason) != report.attempts.end();
  };
  if (has("embedded_media")) return words(_("holds a video, which would be lost"));
  return words(has("below_minimum") ? _("too little to gain") : _("nothing smaller was found"));
}

/// What the last of the failed attempts says; the result of the batch will say more.
QString whyFailed(const Report& report) {
  for (auto attempt = report.attempts.rbegin(); attempt != report.attempts.rend(); ++attempt) {
    if (attempt->status == "error" && attempt->detail) return words(describedServiceText(*attempt->detail));
  }
  return {};
}

}  // namespace

BatchFollower::BatchFollower(Places places, QObject* parent)
    : QObject(parent), places_(std::move(places)), diagnostics_(places_.store.diagnosticsDirectory()) {
  pool_.setMaxThreadCount(1);
  timer_.setSingleShot(true);
  timer_.setInterval(gatheringMilliseconds);
  connect(&timer_, &QTimer::timeout, this, &BatchFollower::readNow);
  stopTimer_.setSingleShot(true);
  stopTimer_.setInterval(stopMilliseconds);
  connect(&stopTimer_, &QTimer::timeout, this, &BatchFollower::failStopped);
}

BatchFollower::~BatchFollower() = default;

void BatchFollower::start(std::vector<FileRow> files, Date startedAt) {
  if (files.empty()) return;
  if (!isFollowing()) watchPlaces();
  begun_.clear();
  ++started_;
  const std::size_t first = followed_.size();
  for (FileRow& row : files) {
    byPath_[keyOf(row.url.path())].push_back(followed_.size());
    row = {.url = std::move(row.url), .before = row.before};
    followed_.push_back(
        {.row = std::move(row), .startedAt = startedAt, .startTicks = Clock::now(), .number = started_});
  }
  unsettled_ += files.size();
  learnLocks(first);
}

void BatchFollower::watchPlaces() {
  followed_.clear();
  byPath_.clear();
  byLock_.clear();
  begun_.clear();
  wish_ = {};
  changed_.clear();
  try {
    files::createDirectories(places_.locks);  // or the first jobs of all begin unseen
  } catch (const FileError&) {
  }
  watch_ = std::make_unique<DirectoryWatch>();
  connect(watch_.get(), &DirectoryWatch::seen, this, &BatchFollower::see);
  connect(watch_.get(), &DirectoryWatch::mustList, this, &BatchFollower::list);
  watch_->watch(places_.store.root(), DirectoryWatch::Event::appeared);
  watch_->watch(diagnostics_, DirectoryWatch::Event::appeared);
  watch_->watch(places_.latestResult.deletingLastPathComponent(), DirectoryWatch::Event::appeared);
  watch_->watch(places_.locks, DirectoryWatch::Event::opened);
}

/// A job opens the lock of its file when it begins.
void BatchFollower::learnLocks(std::size_t first) {
  std::vector<URL> files;
  for (std::size_t index = first; index < followed_.size(); ++index)
    files.push_back(followed_[index].row.url);
  inBackground(
      this,
      [files = std::move(files)] {
        std::vector<std::string> names;
        for (const URL& file : files) {
          names.push_back(ExecutionPermit::fileLockName(CompressionQueue::fileIdentity(file)));
        }
        return names;
      },
      [this, first, number = started_](const std::vector<std::string>& names) {
        if (first >= followed_.size() || followed_[first].number != number) return;  // all of that has ended
        for (std::size_t index = 0; index < names.size(); ++index) {
          byLock_[names[index]].push_back(first + index);
          if (begun_.contains(names[index])) begin(first + index);
        }
        tell();
      },
      &pool_);
}

void BatchFollower::see(const std::string& directory, const std::string& name) {
  const URL folder = URL::file(directory);
  const URL file = folder.appending(name);
  if (folder == places_.locks) {
    begun_.insert(name);
    const auto files = byLock_.find(name);
    if (files == byLock_.end()) return;
    std::ranges::for_each(files->second, [this](std::size_t index) { begin(index); });
    return tell();
  }
  if (file == places_.latestResult) return readLatestResult();
  if (folder == places_.store.root()) {
    if (UUID::isCanonical(name)) follow(file);
  } else if (folder == diagnostics_) {
    if (Report::startOf(name)) wish_.reports.push_back(file);
  } else if (file.pathExtension() == "json" && UUID::isCanonical(file.stem())) {
    wish_.records.push_back(file);
  }
  schedule();
}

void BatchFollower::list(const std::string& directory) {
  const URL folder = URL::file(directory);
  if (folder == places_.store.root()) {
    wish_.store = folder;
  } else if (folder == diagnostics_) {
    wish_.diagnostics = folder;
  } else if (folder == places_.latestResult.deletingLastPathComponent()) {
    wish_.latestResult = places_.latestResult;
  } else if (folder != places_.locks) {
    wish_.sessions.push_back(folder);
  }
  schedule();
}

void BatchFollower::follow(const URL& session) {
  watch_->watch(session, DirectoryWatch::Event::appeared);
  wish_.sessions.push_back(session);
}

void BatchFollower::readLatestResult() {
  wish_.latestResult = places_.latestResult;
  schedule();
}

void BatchFollower::schedule() {
  if (isFollowing() && !reading_ && !timer_.isActive() && !wish_.empty()) timer_.start();
}

void BatchFollower::readNow() {
  if (!isFollowing()) return;
  reading_ = true;
  Date since = Date::now();
  for (const Followed& file : followed_) since = std::min(since, startNow(file.startedAt, file.startTicks));
  inBackground(
      this, [wish = std::exchange(wish_, {}), since] { return readTraces(wish, since); },
      [this, gone = std::exchange(gone_, {})](const Traces& traces) {
        reading_ = false;
        take(traces);
        failAll(gone);
        tell();
        schedule();
      },
      &pool_);
}

void BatchFollower::taken(const QString& process) {
  if (answered_ == started_) return;
  ++answered_;
  for (Followed& file : followed_) {
    if (file.number == answered_) file.takenBy = process;
  }
}

void BatchFollower::refused(const QString& why) {
  if (answered_ == started_) return;
  ++answered_;
  for (Followed& file : followed_) {
    if (file.number == answered_ && !file.settled) fail(file, why);
  }
  tell();
}

/// What the process still wrote counts first.
void BatchFollower::vanished(const QString& process) {
  gone_.push_back(process);
  wish_.store = places_.store.root();
  wish_.diagnostics = diagnostics_;
  readLatestResult();
}

void BatchFollower::stopped() {
  if (!isFollowing()) return;
  stopped_ = answered_;
  stopTimer_.start();
}

void BatchFollower::failStopped() {
  if (reading_ || timer_.isActive()) return stopTimer_.start();
  const QString why = words(_("stopped"));
  for (Followed& file : followed_) {
    if (file.settled || file.number > stopped_) continue;
    const bool isUntouched = !isDone(file.row.state) && !file.row.record;
    isUntouched ? giveBack(file) : giveUp(file, why, why);
  }
  tell();
}

void BatchFollower::failAll(const std::vector<QString>& processes) {
  for (Followed& file : followed_) {
    if (file.settled || std::ranges::find(processes, file.takenBy) == processes.end()) continue;
    giveUp(file, words(_("the background service ended before it said why")),
           words(_("the background service ended before the file was done")));
  }
}

/// Of a file that nothing more will come of: it failed, or it was not done.
void BatchFollower::giveUp(Followed& file, const QString& whyFailed, const QString& whyNotDone) {
  if (!isDone(file.row.state)) return fail(file, whyNotDone);
  if (file.row.state == RowState::failed && file.row.why.isEmpty()) {
    file.row.why = whyFailed;
    change(file);
  }
  settle(file);
}

/// A stopped file is as it was, and waits as it did.
void BatchFollower::giveBack(Followed& file) {
  file.row = {.url = std::move(file.row.url), .before = file.row.before};
  change(file);
  settle(file);
}

template <typename Condition>
BatchFollower::Followed* BatchFollower::find(const std::string& path, Date moment, Condition condition) {
  const auto files = byPath_.find(keyOf(path));
  if (files == byPath_.end()) return nullptr;
  for (const std::size_t index : files->second) {
    Followed& file = followed_[index];
    if (moment >= startNow(file.startedAt, file.startTicks) && condition(file)) return &file;
  }
  return nullptr;
}

void BatchFollower::take(const Traces& traces) {
  for (const URL& session : traces.sessions) watch_->watch(session, DirectoryWatch::Event::appeared);
  for (const UndoRecord& record : traces.records) takeRecord(record);
  for (const Report& report : traces.reports) takeReport(report);
  if (traces.latestResult) takeResult(*traces.latestResult);
  if (stopTimer_.isActive() && !changed_.empty()) stopTimer_.start();  // it still tells
}

void BatchFollower::takeRecord(const UndoRecord& record) {
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
  FileRow& row = file->row;
  row.record = record.id;
  row.batch = record.sessionID;
  row.before = record.originalBytes;
  if (record.state == UndoRecord::State::committed) {
    row.state = record.convertedPath ? RowState::converted : RowState::replaced;
    row.after = record.replacementBytes;
  } else if (!isDone(row.state)) {
    row.state = RowState::working;
  }
  change(*file);
  if (std::ranges::find(batches_, record.sessionID) != batches_.end()) return;
  batches_.push_back(record.sessionID);
  Q_EMIT batchSeen(record.sessionID);
}

void BatchFollower::takeReport(const Report& report) {
  Followed* const file = find(report.source, report.startedAt.adding(rounding),
                              [](const Followed& candidate) { return !candidate.settled; });
  if (!file) return;
  FileRow& row = file->row;
  row.state = stateOf(report.outcome);
  row.encoder = report.selectedEncoder;
  for (const CandidateDiagnostic& attempt : report.attempts) {
    if (attempt.status != "accepted" || attempt.encoder != report.selectedEncoder) continue;
    row.score = attempt.score;
    if (!row.after) row.after = attempt.bytes;
  }
  if (row.state == RowState::skipped) {
    row.after = row.before;
    row.why = whySkipped(report);
  }
  change(*file);
  // Why it failed the result will tell.
  if (row.state != RowState::failed) return settle(*file);
  row.after.reset();
  row.score.reset();
  row.record.reset();
  row.why = whyFailed(report);
}

void BatchFollower::takeResult(const BackgroundBatchResult& result) {
  // It may be another program's batch.
  const bool isOurs =
      std::ranges::find(batches_, result.sessionID) != batches_.end() ||
      std::ranges::all_of(result.items, [&](const auto& item) {
        return find(item.path, result.finishedAt, [](const Followed&) { return true; }) != nullptr;
      });
  if (!isOurs) return;
  for (const auto& item : result.items) takeItem(item, result.finishedAt);
}

void BatchFollower::takeItem(const BackgroundBatchResult::Item& item, Date finishedAt) {
  Followed* const file =
      find(item.path, finishedAt, [](const Followed& candidate) { return !candidate.settled; });
  if (!file) return;
  if (item.error == Interrupted().what()) return giveBack(*file);
  FileRow& row = file->row;
  row.state = stateOf(item.outcome);
  if (item.originalBytes) row.before = item.originalBytes;
  row.after = item.finalBytes;
  if (item.error) row.why = words(describedServiceText(*item.error));
  if (row.state == RowState::skipped && row.why.isEmpty()) row.why = words(_("nothing smaller was found"));
  change(*file);
  settle(*file);
}

void BatchFollower::begin(std::size_t index) {
  Followed& file = followed_[index];
  if (file.row.state != RowState::waiting) return;
  file.row.state = RowState::working;
  change(file);
}

void BatchFollower::settle(Followed& file) {
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

void BatchFollower::fail(Followed& file, const QString& why) {
  file.row.state = RowState::failed;
  file.row.why = why;
  change(file);
  settle(file);
}

void BatchFollower::change(const Followed& file) {
  changed_.push_back(static_cast<std::size_t>(&file - followed_.data()));
}

void BatchFollower::tell() {
  if (!changed_.empty()) {
    std::ranges::sort(changed_);
    changed_.erase(std::unique(changed_.begin(), changed_.end()), changed_.end());
    std::vector<FileRow> rows;
    for (const std::size_t index : std::exchange(changed_, {})) rows.push_back(followed_[index].row);
    Q_EMIT updated(rows);
  }
  if (isFollowing() || !watch_) return;
  watch_.reset();
  Q_EMIT ended();
}

}  // namespace tidewell::desktop
