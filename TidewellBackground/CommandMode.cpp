// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/CommandMode.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/batch/BackgroundCompressor.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Signals.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/queue/CompressionQueue.h"

namespace tidewell {
namespace {

/// Writes to standard output and closes it. Where the text has to wait for its reader, a signal ends the
/// wait. Throws `FileError`.
void print(std::string_view text, const TerminationSignals& signals) {
  const auto failed = [] { return FileError("写入", "标准输出", errno); };
  while (!text.empty()) {
    pollfd watched[] = {{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0},
                        {.fd = signals.descriptor(), .events = POLLIN, .revents = 0}};
    if (poll(watched, std::size(watched), -1) < 0 && errno != EINTR) throw failed();
    if (watched[0].revents == 0) {
      if (watched[1].revents != 0) return;
      continue;
    }
    // A pipe with any room takes this much at once.
    const ssize_t count = write(STDOUT_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR && errno != EAGAIN) {
      throw failed();
    }
  }
  if (close(STDOUT_FILENO) != 0) throw failed();  // a network file system tells of a full disk only here
}

}  // namespace

int runCommandMode(std::span<const char* const> arguments, const URL& tools) {
  const TerminationSignals signals;
  std::optional<URL> undoRoot;
  if (arguments.size() >= 2 && std::string_view(arguments[0]) == "--undo-root") {
    undoRoot = URL::file(arguments[1]);
    arguments = arguments.subspan(2);
  }
  std::vector<URL> urls;
  urls.reserve(arguments.size());
  for (const char* path : arguments) urls.push_back(URL::file(path));

  BatchStop stop(CompressionQueue::shared());
  BackgroundCompressor compressor(CompressionEngine(ToolRunner(tools, stop.token()), UndoStore(undoRoot), {}),
                                  CompressionQueue::shared(), std::make_unique<OutputMemory>());
  BackgroundBatchResult result;
  {
    const SignalWatch watch(signals, [&stop] { stop.stop(); });
    result = compressor.compress(urls);
  }
  const int signal = signals.takeAll();
  int status = result.failedCount() != 0 ? 1 : 0;
  try {
    print(result.json() + "\n", signals);
  } catch (const FileError& error) {
    std::fprintf(stderr, "TidewellBackground：%s\n", error.what());
    status = 1;
  }
  const int lateSignal = signals.take();
  if (signal != 0 || lateSignal != 0) return 128 + (signal != 0 ? signal : lateSignal);
  return status;
}

}  // namespace tidewell
