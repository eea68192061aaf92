// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Stop.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <latch>
#include <thread>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"
#include "support/Faults.h"

namespace tidewell {
namespace {

bool wakes(int descriptor, int milliseconds = 0) {
  pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
  return poll(&watched, 1, milliseconds) == 1;
}

TEST(Stop, ReachesEveryCopyOfTheToken) {
  StopToken token;
  EXPECT_EQ(token.descriptor(), -1);
  {
    StopSource source;
    token = source.token();
    EXPECT_FALSE(token.stopRequested() || wakes(token.descriptor()));
    source.requestStop();
  }
  EXPECT_TRUE(token.stopRequested() && wakes(token.descriptor()));
  EXPECT_THROW(token.throwIfStopped(), Interrupted);
}

TEST(Stop, OfEitherWholeStopsThePart) {
  for (const bool first : {false, true}) {
    StopSource a, b;
    const StopSource part(a.token(), b.token()), other(b.token());
    (first ? a : b).requestStop();
    EXPECT_TRUE(part.token().stopRequested() && wakes(part.token().descriptor()));
    EXPECT_NE(other.token().stopRequested(), first);
    EXPECT_TRUE(StopSource(a.token(), b.token()).token().stopRequested());
  }
}

TEST(Stop, NeedsADescriptorOnlyToBeWatched) {
  StopSource source;
  const StopToken token = source.token();
  EXPECT_THROW(throw FileError("创建", "x", EMFILE),
               FileError);  // a sanitizer opens a pipe to look at a new type
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_THROW(token.descriptor(), FileError);
  source.requestStop();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(token.stopRequested() && wakes(token.descriptor()));
}

// A thread that waits for the request is joined at the end of the program: it must wake whatever fails.
TEST(Stop, WakesWhoeverWaitsEvenWhereNothingCanBeWritten) {
  StopSource source;
  std::thread waiting([&] { EXPECT_TRUE(wakes(source.token().descriptor(), 10'000)); });
  test::Faults faults;
  faults.fail(1, EIO, true);
  source.requestStop();
  source.requestStop();
  waiting.join();
}

// Without a latch between check and call, so that over the rounds requests fall before, into and after it.
TEST(Stop, InterruptsBlockingCallsWheneverItComes) {
  for (int round = 0; round < 200; ++round) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const Descriptor reader(ends[0]);
    const Descriptor writer(ends[1]);
    StopSource source;
    std::latch started(3);
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([&, token = source.token()] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);  // as a program that handles signals elsewhere would
        started.arrive_and_wait();
        {
          const StopToken::Interruptible section(token);
          char byte = 0;
          while (!token.stopRequested()) {
            EXPECT_EQ(read(reader.get(), &byte, 1), -1);
            EXPECT_EQ(errno, EINTR);
          }
        }
        sigset_t pending;
        sigpending(&pending);
        EXPECT_TRUE(sigisemptyset(&pending)) << "a signal is left for a later call";
      });
    }
    started.arrive_and_wait();
    source.requestStop();
    for (auto& thread : threads) thread.join();
  }
}

}  // namespace
}  // namespace tidewell
