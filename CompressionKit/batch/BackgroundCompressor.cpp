#include "CompressionKit/batch/BackgroundCompressor.h"

#include <cstdint>
#include <exception>
#include <future>
#include <string>
#include <utility>

#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/undo/FolderSweep.h"

namespace tidewell {
namespace {

constexpr double maximumBackupAge = UndoStore::backupRetention;
constexpr std::int64_t maximumBackupBytes = std::int64_t{5} << 30;

void fail(BackgroundBatchResult::Item& item) {
  item.outcome = "failed";
  item.error = localizedDescription(std::current_exception());
}

}  // namespace

BackgroundCompressor::BackgroundCompressor(CompressionEngine engine, CompressionQueue& queue)
    : engine_(std::move(engine)), queue_(queue) {}

BackgroundBatchResult BackgroundCompressor::compress(const std::vector<URL>& urls) {
  cleanUp();
  BackgroundBatchResult result{.sessionID = UUID::random(), .finishedAt = {}, .items = {}};
  result.items.resize(urls.size());
  for (std::size_t i = 0; i < urls.size(); ++i) result.items[i].path = urls[i].path();

  FolderSweeps sweeps;
  // All are queued before any is awaited. A file that waits costs a future, not a thread.
  std::vector<std::future<CompressionResult>> futures(urls.size());
  for (std::size_t i = 0; i < urls.size(); ++i) {
    try {
      if (ImageKind::from(urls[i])) {
        futures[i] =
            queue_.run(urls[i], nullptr, [this, &sweeps, &url = urls[i], session = result.sessionID] {
              sweeps.sweepOnce(url.deletingLastPathComponent());
              return engine_.compress(url, session);
            });
      } else {
        result.items[i].outcome = "skipped";
        result.items[i].error = "不支持的文件格式";
      }
    } catch (...) {
      fail(result.items[i]);
    }
  }
  // From the last to the first: most of them end in the order in which they were queued, so that this thread
  // is not woken for each.
  for (std::size_t i = urls.size(); i-- > 0;) {
    if (!futures[i].valid()) continue;
    auto& item = result.items[i];
    try {
      const CompressionResult compressed = futures[i].get();
      item.outcome = compressed.outcome.rawValue();
      item.originalBytes = compressed.originalBytes;
      item.finalBytes = compressed.finalBytes;
    } catch (...) {
      fail(item);
    }
  }
  cleanUp();
  result.finishedAt = Date::now();
  return result;
}

BackgroundCompressor::Maintenance BackgroundCompressor::maintainBackups() {
  const auto pass = cleanUp();
  return {.deadline = pass.nextExpiration, .changed = pass.changed, .overdue = pass.overdue};
}

UndoStore::Maintenance BackgroundCompressor::cleanUp() {
  const std::lock_guard lock(maintenance_);
  return engine_.undo().maintain(maximumBackupAge, maximumBackupBytes, Date::now());
}

}  // namespace tidewell
