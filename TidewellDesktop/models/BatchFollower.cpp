// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/BatchFollower.h"

#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "CompressionKit/queue/ExecutionPermit.h"
#include "TidewellDesktop/support/Background.h"

namespace tidewell::desktop {
namespace {

/// What comes within this time is read and shown together. Far more than a hundred reports, of which the
/// oldest would go, cannot.
constexpr int gatheringMilliseconds = 40;
/// A service that was stopped has soon written the last of what it had begun. Two of its batches that end at
/// once leave one result, so that some files are told of nowhere.
constexpr int stopMilliseconds = 3000;

}  // namespace

BatchFollower::BatchFollower(Places places, QObject* parent)
    : QObject(parent), places_(std::move(places)), diagnostics_(places_.store.diagnosticsDirectory()) {
  pool_.setMaxThreadCount(1);
  timer_.setSingleShot(true);
  timer_.setInterval(gatheringMilliseconds);
  connect(&timer_, &QTimer::timeout, this, &BatchFollower::readNow);
  stopTimer_.setSingleShot(true);
  stopTimer_.setInterval(stopMilliseconds);
  connect(&stopTimer_, &QTimer::timeout, this, &BatchFollower::endStopped);
}

BatchFollower::~BatchFollower() = default;

void BatchFollower::start(std::vector<FileRow> files, Date startedAt) {
  if (files.empty()) return;
  if (!isFollowing()) watchPlaces();
  learnLocks(files_.start(std::move(files), startedAt));
}

void BatchFollower::watchPlaces() {
  wish_ = {};
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
void BatchFollower::learnLocks(int start) {
  inBackground(
      this,
      [files = files_.filesOf(start)] {
        std::vector<std::string> names;
        names.reserve(files.size());
        for (const URL& file : files) {
          names.push_back(ExecutionPermit::fileLockName(CompressionQueue::fileIdentity(file)));
        }
        return names;
      },
      [this, start](const std::vector<std::string>& names) {
        files_.learnLocks(start, names);
        tell();
      },
      &pool_);
}

void BatchFollower::see(const std::string& directory, const std::string& name) {
  const URL folder = URL::file(directory);
  const URL file = folder.appending(name);
  if (folder == places_.locks) {
    files_.begin(name);
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
  inBackground(
      this,
      [wish = std::exchange(wish_, {}), since = files_.earliestStart()] { return readTraces(wish, since); },
      [this, gone = std::exchange(gone_, {})](const Traces& traces) {
        reading_ = false;
        take(traces);
        files_.endTaken(gone);
        tell();
        schedule();
      },
      &pool_);
}

void BatchFollower::take(const Traces& traces) {
  if (!watch_) return;  // all has ended while this was read
  for (const URL& session : traces.sessions) watch_->watch(session, DirectoryWatch::Event::appeared);
  files_.take(traces);
  if (stopTimer_.isActive() && files_.hasChanges()) stopTimer_.start();  // it still tells
}

void BatchFollower::taken(const QString& process) {
  files_.taken(process);
}

void BatchFollower::refused(const QString& why) {
  files_.refused(why);
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
  files_.stopped();
  stopTimer_.start();
}

void BatchFollower::endStopped() {
  if (reading_ || timer_.isActive()) return stopTimer_.start();
  files_.endStopped();
  tell();
}

void BatchFollower::tell() {
  if (files_.hasChanges()) Q_EMIT updated(files_.takeChanges());
  if (isFollowing() || !watch_) return;
  watch_.reset();
  Q_EMIT ended();
}

}  // namespace tidewell::desktop
