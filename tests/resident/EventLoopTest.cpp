// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/EventLoop.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "TidewellBackground/resident/BackgroundThreads.h"

namespace tidewell {
namespace {

TEST(EventLoopTest, runsPostsOfManyThreadsOnItsOwnInTheirOrder) {
  EventLoop loop;
  const auto main = std::this_thread::get_id();
  std::vector<std::vector<int>> seen(4);
  int left = 4 * 1000;
  {
    BackgroundThreads threads(loop);
    for (std::size_t thread = 0; thread < seen.size(); ++thread) {
      threads.run([&, thread] {
        for (int i = 0; i < 1000; ++i) {
          loop.post([&, thread, i] {
            EXPECT_EQ(std::this_thread::get_id(), main);
            seen[thread].push_back(i);
            if (--left == 0) loop.terminate();
          });
        }
      });
    }
    loop.run();
  }
  for (const auto& list : seen) {
    ASSERT_EQ(list.size(), 1000u);
    EXPECT_TRUE(std::ranges::is_sorted(list));
  }
}

TEST(EventLoopTest, timersElapseByTheirTimeAndMayArmOthers) {
  EventLoop loop;
  std::string order;
  loop.after(0.6, [&] { loop.terminate(); });
  loop.after(0.3, [&] {
    order += "b";
    loop.after(0, [&] { order += "c"; });
  });
  loop.after(-1, [&] { order += "a"; });
  loop.run();
  EXPECT_EQ(order, "abc");
}

TEST(EventLoopTest, signalsArriveOnTheLoopWhicheverThreadGetsThem) {
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    EventLoop loop;
    int signals = 0;
    loop.onSignals({SIGUSR1, SIGUSR2}, [&] {
      if (++signals == 2) loop.terminate();
    });
    std::jthread([] { kill(getpid(), SIGUSR1); });
    kill(getpid(), SIGUSR2);
    loop.run();
    EXPECT_EQ(signals, 2);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
}  // namespace tidewell
