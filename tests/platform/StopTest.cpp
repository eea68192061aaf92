#include "CompressionKit/platform/Stop.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <iterator>
#include <latch>
#include <thread>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

bool wakes(int descriptor, int milliseconds = 0) {
  pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
  return poll(&watched, 1, milliseconds) == 1;
}

/// Makes every write(2) of this thread fail from now on. False where that is not allowed.
bool refuseWrites() {
  sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog filter{.len = std::size(program), .filter = program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
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

// A thread that waits for the request is joined at the end of the program: it must wake whatever fails.
TEST(Stop, WakesWhoeverWaitsEvenWhereNothingCanBeWritten) {
  StopSource source;
  std::thread waiting([&] { EXPECT_TRUE(wakes(source.token().descriptor(), 60'000)); });
  bool refused = false;
  std::thread([&] {
    refused = refuseWrites();
    source.requestStop();
    source.requestStop();
  }).join();
  waiting.join();
  if (!refused) GTEST_SKIP() << "no system call filters here";
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
