// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/ResidentMode.h"

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <system_error>

#include "CompressionKit/batch/BackgroundCompressor.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "TidewellBackground/resident/BackgroundApplication.h"
#include "TidewellBackground/resident/BackgroundThreads.h"
#include "TidewellBackground/resident/CommandToken.h"
#include "TidewellBackground/resident/EventLoop.h"
#include "TidewellBackground/resident/SessionService.h"
#include "TidewellBackground/resident/StatusNotifierItem.h"
#include "TidewellBackground/resident/WakeObserver.h"

namespace tidewell {

int runResidentMode(const URL& tools) {
  EventLoop loop;
  BatchStop stop(CompressionQueue::shared());
  std::optional<BackgroundApplication> application;

  // A stopped batch ends soon, and with a result: what was compressed before is reported.
  const auto quit = [&] {
    stop.stop();
    application->terminateAfterBatches();
  };
  // Before any thread: none of them shall receive these.
  loop.onSignals({SIGTERM, SIGINT, SIGHUP}, quit);

  std::optional<SessionService> session;
  try {
    session.emplace(
        loop, SessionService::Handlers{
                  .open = [&](const auto& urls, const auto& options) { application->open(urls, options); },
                  .stop = [&] { application->stopBatches(); },
                  .undoDidChange = [&] { application->undoDidChange(); },
                  .disconnected = quit});
    if (!session->acquireName()) return 0;
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "TidewellBackground：没有可用的会话总线（DBUS_SESSION_BUS_ADDRESS）：%s\n",
                 describeErrno(error.code().value()).c_str());
    return 1;
  }

  BackgroundCompressor compressor(CompressionEngine(ToolRunner(tools, stop.token()), UndoStore(), {}),
                                  CompressionQueue::shared(), std::make_unique<OutputMemory>());
  StatusNotifierArea statusArea(loop);
  CommandToken tokens;
  BackgroundThreads threads(loop);  // destroyed, and so joined, before what the threads use
  application.emplace(CompressorOperations{.compress =
                                               [&](const auto& urls, const auto& options, const auto& token) {
                                                 return compressor.compress(urls, options, token);
                                               },
                                           .maintainBackups = [&] { return compressor.maintainBackups(); }},
                      Desktop{.mainQueue = loop,
                              .workers = threads,
                              .statusBar = statusArea,
                              .notifications = *session,
                              .tokens = tokens});
  const WakeObserver wake(loop, [&] { application->workspaceDidWake(); });
  application->applicationDidFinishLaunching();

  loop.run();
  session->resign();
  if (application->activeBatches() > 0) {  // by a request that came just before
    session->extendStop();
    application->terminateAfterBatches();
    loop.run();
  }
  return 0;
}

}  // namespace tidewell
