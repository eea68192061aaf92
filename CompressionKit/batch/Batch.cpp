// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/Batch.h"

#include <condition_variable>
#include <exception>
#include <future>
#include <list>
#include <memory>
#include <utility>

#include "CompressionKit/batch/BatchJob.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// What may be backed up between two clean-ups of a batch, beyond the limit.
constexpr std::int64_t bytesBetweenCleanUps = std::int64_t{1} << 30;

bool mayRemoveBackups(const BatchOptions& options) {
  return !options.dryRun && !options.output;
}

}  // namespace

/// One batch while it runs.
class Batch::Run {
 public:
  Run(Batch& batch, const BatchOptions& options, const Observer& observer)
      : batch_(batch),
        options_(options),
        observer_(observer),
        stop_(batch.engine_.tools().stopToken(), options.stop),
        engine_(batch.engine_.stoppedBy(stop_.token())),
        job_(engine_, batch.memory_, options),
        ahead_(options.ahead != 0 ? options.ahead : 4 * static_cast<std::size_t>(batch.queue_.limit())) {}
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  /// However it ends, no job outlives it.
  ~Run() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return running_.empty(); });
  }

  void run(const Source& source) {
    bool hasMore = true;
    std::size_t underWay = 0;
    while (hasMore || underWay > 0) {
      if (hasMore && underWay < ahead_) {
        if (auto file = source()) {
          underWay += begin(*std::move(file)) ? 1 : 0;
        } else {
          hasMore = false;
        }
      }
      const bool mustWait = underWay == ahead_ || !hasMore;
      underWay -= tellEnded(mustWait && underWay > 0);
    }
  }

 private:
  /// A file in the queue or at work.
  struct Slot {
    std::size_t number;
    Found file;
    std::future<FileReport> report = {};
    std::exception_ptr error = nullptr;  ///< it could not be queued
  };
  using Slots = std::list<Slot>;

  /// False when it is told already.
  bool begin(Found file) {
    const std::size_t number = count_++;
    if (!file.error && ImageKind::from(file.url)) {
      queue({.number = number, .file = std::move(file)});
      return true;
    }
    FileReport report = reportOn(file);
    report.number = number;
    report.error = file.error;
    if (!file.error) {
      report.outcome = FileReport::Outcome::skipped;
      report.reason = FileReport::Reason::unsupported;
    }
    tell(report);
    return false;
  }

  void queue(Slot added) {
    Slots::iterator slot;
    {
      const std::lock_guard lock(mutex_);
      slot = running_.insert(running_.end(), std::move(added));
    }
    try {
      // It goes with the job, whichever way that ends, and says so.
      std::shared_ptr<void> end(nullptr, [this, slot](void*) noexcept {
        const std::lock_guard lock(mutex_);
        ended_.splice(ended_.end(), running_, slot);
        changed_.notify_one();
      });
      auto perform = [this, slot, end = std::move(end)] {
        if (observer_.started) observer_.started(slot->file);
        return job_.perform(slot->file);
      };
      slot->report = batch_.queue_.run(slot->file.url, nullptr, std::move(perform), stop_.token());
    } catch (...) {
      slot->error = std::current_exception();
    }
  }

  /// Returns how many there were.
  std::size_t tellEnded(bool waits) {
    Slots ended;
    {
      std::unique_lock lock(mutex_);
      if (waits) changed_.wait(lock, [&] { return !ended_.empty(); });
      ended.swap(ended_);
    }
    for (Slot& slot : ended) {
      FileReport report = reportOn(slot.file);
      try {
        if (slot.error) std::rethrow_exception(slot.error);
        report = slot.report.get();
      } catch (...) {
        report.error = std::current_exception();
      }
      report.number = slot.number;
      tell(report);
    }
    return ended.size();
  }

  void tell(const FileReport& report) {
    if (observer_.finished) observer_.finished(report);
    if (!report.record || !options_.cleansUpInBetween || !mayRemoveBackups(options_)) return;
    backedUp_ += report.originalBytes.value_or(0);
    if (backedUp_ < bytesBetweenCleanUps) return;
    backedUp_ = 0;
    batch_.maintain();
  }

  Batch& batch_;
  const BatchOptions& options_;
  const Observer& observer_;
  const StopSource stop_;
  const CompressionEngine engine_;
  BatchJob job_;
  const std::size_t ahead_;
  std::size_t count_ = 0;
  std::int64_t backedUp_ = 0;  ///< since the last clean-up

  std::mutex mutex_;
  std::condition_variable changed_;
  Slots running_, ended_;
};

Batch::Batch(CompressionEngine engine, CompressionQueue& queue, OutputMemory* memory)
    : engine_(std::move(engine)), queue_(queue), memory_(memory) {}

void Batch::run(const Source& source, const BatchOptions& options, const Observer& observer) {
  if (mayRemoveBackups(options)) maintain();
  Run(*this, options, observer).run(source);
  if (mayRemoveBackups(options)) maintain();
}

UndoStore::Maintenance Batch::maintain() {
  const std::lock_guard lock(maintenance_);
  return engine_.undo().maintain(UndoStore::backupRetention, maximumBackupBytes, Date::now());
}

bool exceeds(FolderWalk walk, std::int64_t bytes) {
  while (bytes >= 0) {
    const auto found = walk.next();
    if (!found) return false;
    if (ImageKind::from(found->url)) bytes -= found->bytes;
  }
  return true;
}

std::int64_t backupBytes(const UndoStore& store) noexcept {
  std::int64_t total = 0;
  const auto addFile = [&](const URL& file) {
    try {
      const auto values = files::resourceValues(file);
      if (values.isRegularFile && file.pathExtension() != "json") total += values.bytes;
    } catch (const FileError&) {  // gone meanwhile
    }
  };
  try {
    for (const URL& session : files::contentsOfDirectory(store.root())) {
      try {
        for (const URL& file : files::contentsOfDirectory(session)) addFile(file);
      } catch (const FileError&) {  // no folder, or gone
      }
    }
  } catch (const std::exception&) {  // no store
  }
  return total;
}

}  // namespace tidewell
