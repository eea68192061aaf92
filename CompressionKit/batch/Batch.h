// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "CompressionKit/batch/FileReport.h"
#include "CompressionKit/batch/FolderWalk.h"
#include "CompressionKit/batch/OutputMemory.h"
#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/queue/CompressionQueue.h"

namespace tidewell {

/// How much all backups together may take; the oldest go first.
inline constexpr std::int64_t maximumBackupBytes = std::int64_t{5} << 30;

struct BatchOptions {
  UUID sessionID = UUID::random();  ///< names the batch in the undo store
  CompressionOptions compression = {};
  /// Also what the memory knows as compressed before is compressed.
  bool again = false;
  /// Works on a copy in the temporary directory and throws it away with backup, record and report. Nothing is
  /// remembered. A conversion is told as `converted`, a replacement as `replaced`.
  bool dryRun = false;
  /// Writes copies below this folder, each under its `Found::treePath`, and leaves the originals alone: no
  /// backup, no record, no report. What is passed over is copied unchanged. Nothing is overwritten: a taken
  /// name is a `FileError` (EEXIST). Copies have mode, owner (where permitted) and extended attributes of the
  /// original.
  std::optional<URL> output = std::nullopt;
  /// Files queued ahead of those at work; 0 for four times the queue's limit.
  std::size_t ahead = 0;
  /// Backups are cleaned up not only before and after.
  bool cleansUpInBetween = true;
  /// Ends this batch early, as what the engine's tools are stopped by ends all of them.
  StopToken stop = {};
};

/// Compresses files as they come, through queue and engine: any number in bounded memory. Several threads may
/// run batches of one object at once.
///
/// What the engine's tools and the queue are stopped by ends all batches early (see `BatchStop`), a token in
/// its options one of them: files that are queued fail with `Interrupted`, and the caller's source must end
/// by itself, as `FolderWalk` does.
class Batch {
 public:
  /// Where files come from; `FolderWalk::next`, usually. May block: what ended meanwhile is told afterwards.
  using Source = std::function<std::optional<Found>()>;
  struct Observer {
    /// A file is at work: called on the queue's threads, several at once.
    std::function<void(const Found&)> started;
    /// A file is done, and free again: called on the thread of `run`, in the order in which files end.
    std::function<void(const FileReport&)> finished;
  };

  /// A queue with a limit of its own, for fewer files at once, shares the lock files with all others. Without
  /// a memory nothing is remembered. Both must outlive this.
  Batch(CompressionEngine engine, CompressionQueue& queue, OutputMemory* memory);

  /// Blocks until every file is done. No error of a file is thrown, but what the source or the observer
  /// throws, once the files at work are done. In place, backups are cleaned up before, after and in between.
  void run(const Source& source, const BatchOptions& options, const Observer& observer);

  /// One clean-up pass over the backups. Blocks on the disk.
  UndoStore::Maintenance maintain();

  const CompressionEngine& engine() const { return engine_; }

 private:
  class Run;

  CompressionEngine engine_;
  CompressionQueue& queue_;
  OutputMemory* memory_;
  std::mutex maintenance_;  ///< clean-up passes of this process run one at a time
};

/// Ends work early by one call: the queue first, so that no job starts, then tools and walks.
class BatchStop {
 public:
  explicit BatchStop(CompressionQueue& queue) : queue_(queue) {}
  StopToken token() const { return source_.token(); }
  void stop() {
    queue_.stop();
    source_.requestStop();
  }

 private:
  CompressionQueue& queue_;
  StopSource source_;
};

/// Whether the files of a walk are more than `bytes` together: read from directories, and no further than
/// needed.
bool exceeds(FolderWalk walk, std::int64_t bytes);

/// What the backups in a store take now. With `exceeds` it tells whether a batch may cost the oldest of them,
/// or of its own: when it comes to more than `maximumBackupBytes` less this.
std::int64_t backupBytes(const UndoStore& store) noexcept;

}  // namespace tidewell
