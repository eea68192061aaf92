// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/BackgroundCompressor.h"

#include <string>
#include <utility>

#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

BackgroundBatchResult::Item item(const FileReport& report) {
  BackgroundBatchResult::Item item{.path = report.url.path(),
                                   .outcome = std::string(rawValue(report.outcome)),
                                   .originalBytes = report.originalBytes,
                                   .finalBytes = report.finalBytes,
                                   .error = std::nullopt};
  if (report.error) item.error = localizedDescription(report.error);
  if (report.reason == FileReport::Reason::unsupported) item.error = "不支持的文件格式";
  return item;
}

}  // namespace

BackgroundCompressor::BackgroundCompressor(CompressionEngine engine, CompressionQueue& queue,
                                           std::unique_ptr<OutputMemory> memory)
    : memory_(std::move(memory)), batch_(std::move(engine), queue, memory_.get()) {}

BackgroundBatchResult BackgroundCompressor::compress(const std::vector<URL>& urls,
                                                     const CompressionOptions& compression,
                                                     const StopToken& stop) {
  // All are queued before any is awaited. A file that waits costs a future, not a thread.
  const BatchOptions options{.compression = compression,
                             .again = true,
                             .ahead = urls.size(),
                             .cleansUpInBetween = false,
                             .stop = stop};
  BackgroundBatchResult result{.sessionID = options.sessionID, .finishedAt = {}, .items = {}};
  result.items.resize(urls.size());
  const auto next = [&urls, i = std::size_t{0}]() mutable -> std::optional<Found> {
    if (i == urls.size()) return std::nullopt;
    return Found{.url = urls[i++], .treePath = {}, .isNamed = true, .bytes = 0, .error = nullptr};
  };
  batch_.run(next, options, {.started = {}, .finished = [&](const auto& report) {
                               result.items[report.number] = item(report);
                             }});
  result.finishedAt = Date::now();
  return result;
}

BackgroundCompressor::Maintenance BackgroundCompressor::maintainBackups() {
  const auto pass = batch_.maintain();
  return {.deadline = pass.nextExpiration, .changed = pass.changed, .overdue = pass.overdue};
}

}  // namespace tidewell
