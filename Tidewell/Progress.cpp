// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/Progress.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Amounts.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Output.h"

namespace tidewell {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto glance = std::chrono::milliseconds(10);
constexpr auto redrawInterval = std::chrono::milliseconds(100);

}  // namespace

Survey::Survey(PathSource paths, WalkOptions options) {
  // Made here, so that what it throws reaches the caller.
  FolderWalk walk(std::move(paths), std::move(options), stop_.token());
  thread_ = std::thread([this, moved = std::move(walk)]() mutable { count(std::move(moved)); });
}

Survey::~Survey() {
  stop_.requestStop();
  thread_.join();
}

void Survey::count(FolderWalk walk) {
  try {
    while (const auto found = walk.next()) {
      const std::lock_guard lock(mutex_);
      ++sum_.files;
      sum_.bytes += found->bytes;
    }
    const std::lock_guard lock(mutex_);
    sum_.complete = !stop_.token().stopRequested();
  } catch (const std::exception&) {
    // Then the end stays unknown; the walk of the batch meets the same and tells it.
  }
  changed_.notify_all();
}

Survey::Sum Survey::sum() const {
  const std::lock_guard lock(mutex_);
  return sum_;
}

bool Survey::exceeds(std::int64_t bytes, std::chrono::milliseconds time) const {
  const auto end = Clock::now() + time;
  std::unique_lock lock(mutex_);
  // Counting does not stop to say how far it is.
  while (sum_.bytes <= bytes && !sum_.complete && Clock::now() < end) changed_.wait_for(lock, glance);
  return sum_.bytes > bytes;
}

void Progress::started(const Found& found) {
  const std::lock_guard lock(mutex_);
  current_ = found.url.path();
  drawLocked();
}

void Progress::finished(const FileReport& report) {
  const std::lock_guard lock(mutex_);
  ++files_;
  bytes_ += report.originalBytes.value_or(0);
  savedBytes_ += report.savedBytes();
  drawLocked();
}

Progress::State Progress::state() const {
  const std::lock_guard lock(mutex_);
  return stateLocked();
}

Progress::State Progress::stateLocked() const {
  State state{
      .files = files_, .savedBytes = savedBytes_, .totalFiles = {}, .secondsLeft = {}, .current = current_};
  if (survey_ == nullptr) return state;
  const Survey::Sum sum = survey_->sum();
  if (!sum.complete) return state;
  state.totalFiles = std::max(sum.files, files_);
  const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
  if (bytes_ > 0 && elapsed > 1) {
    const auto rest = static_cast<double>(std::max<std::int64_t>(sum.bytes - bytes_, 0));
    state.secondsLeft = elapsed * rest / static_cast<double>(bytes_);
  }
  return state;
}

void Progress::drawLocked() {
  if (!terminal_.showsProgress() || Clock::now() - drawn_ < redrawInterval) return;
  drawn_ = Clock::now();
  const State state = stateLocked();
  const std::string count = std::to_string(state.files);
  std::string line = state.totalFiles
                         ? filled(_("{1} of {2} files"), {count, std::to_string(*state.totalFiles)})
                         : counted("{1} file", "{1} files", state.files);
  line += filled(_(", {1} saved"), {sizeText(state.savedBytes)});
  if (state.secondsLeft) line += filled(_(", {1} left"), {durationText(*state.secondsLeft)});
  if (!current_.empty()) line += "  " + printable(URL::file(current_).lastPathComponent());
  terminal_.showProgress(line);
}

}  // namespace tidewell
