// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/queue/CompressionQueue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/queue/ExecutionPermit.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

class CompressionQueueTest : public testing::Test {
 protected:
  /// Something that has happened, in order.
  void note(const std::string& event) {
    const std::lock_guard lock(mutex);
    events.push_back(event);
  }

  const test::TemporaryFolder folder;
  const URL locks = folder / "locks";
  const URL a = folder.write("a.jpg", "a");
  const URL b = folder.write("b.jpg", "b");
  const URL c = folder.write("c.jpg", "c");
  std::mutex mutex;
  std::vector<std::string> events;
};

TEST_F(CompressionQueueTest, ChoosesItsLimitAndDirectory) {
  constexpr std::uint64_t gib = 1ULL << 30;
  const struct {
    unsigned cores;
    std::uint64_t memory;
    int tasks;
  } cases[] = {{8, 16 * gib, 4}, {10, 32 * gib, 4}, {8, 8 * gib, 2},     {10, 12 * gib, 3},
               {4, 16 * gib, 2}, {2, 2 * gib, 1},   {8, 8 * gib - 1, 1}, {0, 0, 1},
               {7, 64 * gib, 3}, {1, 64 * gib, 1},  {~0U, ~0ULL, 4}};
  for (const auto& [cores, memory, tasks] : cases) {
    EXPECT_EQ(CompressionQueue::recommendedConcurrentTasks(cores, memory), tasks) << cores << " " << memory;
  }
  for (const auto& [wanted, limit] : {std::pair(-3, 1), {0, 1}, {1, 1}, {7, 7}, {10, 10}, {25, 10}}) {
    EXPECT_EQ(CompressionQueue(wanted, locks).limit(), limit);
  }
  const test::ScopedEnvironment support("XDG_DATA_HOME", folder.url().path().c_str());
  const CompressionQueue queue(1);
  EXPECT_EQ(queue.coordinationDirectory(), folder / "Tidewell/CompressionLocks");
  EXPECT_FALSE(files::exists(folder / "Tidewell"));
  EXPECT_EQ(CompressionQueue::shared().limit(), CompressionQueue::recommendedConcurrentTasks());
}

TEST_F(CompressionQueueTest, PassesOverAJobWhoseFileIsBusy) {
  ASSERT_EQ(symlink("a.jpg", (folder / "link.jpg").path().c_str()), 0);
  ASSERT_EQ(link(a.path().c_str(), (folder / "hard.jpg").path().c_str()), 0);
  EXPECT_NE(CompressionQueue::fileIdentity(folder / "hard.jpg"), CompressionQueue::fileIdentity(a));
  CompressionQueue queue(2, locks);
  std::latch bothRun(2);
  std::latch cRan(1);
  auto first = queue.run(a, {}, [&] {
    bothRun.arrive_and_wait();
    cRan.wait();
    note("first a ends");
  });
  auto second = queue.run(
      folder / "link.jpg", [&] { note("second a starts"); }, [] {});
  auto other = queue.run(b, {}, [&] { bothRun.arrive_and_wait(); });
  auto last = queue.run(c, {}, [&] { cRan.count_down(); });
  for (auto* future : {&first, &second, &other, &last}) future->get();
  EXPECT_EQ(events, (std::vector<std::string>{"first a ends", "second a starts"}));
}

TEST_F(CompressionQueueTest, ServesInOrder) {
  CompressionQueue queue(1, locks);
  std::vector<std::future<void>> futures;
  std::vector<std::string> expected;
  for (int i = 0; i < 10; ++i) {
    const std::string name = std::to_string(i);
    expected.push_back(name + " starts");
    expected.push_back(name + " runs");
    futures.push_back(queue.run(
        i % 3 ? a : b, [this, name] { note(name + " starts"); }, [this, name] { note(name + " runs"); }));
  }
  for (auto& future : futures) future.get();
  EXPECT_EQ(events, expected);
}

TEST_F(CompressionQueueTest, FileIsFreeWhenTheCallerGoesOn) {
  CompressionQueue queue(2, locks);
  const auto held = std::make_shared<int>(0);
  const URL lock = locks.appending("file-" + hash(CompressionQueue::fileIdentity(a)) + ".lock");
  for (int round = 0; round < 100; ++round) {
    queue
        .run(
            a, [held] {}, [held] {})
        .get();
    EXPECT_EQ(held.use_count(), 1);
    const Descriptor file(open(lock.path().c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
  }
  // The last moment before the caller goes on, when the operation is destroyed: another job gets the file.
  std::future<void> next;
  const auto startNext = [&](void*) {
    next = queue.run(a, {}, [] {});
    EXPECT_EQ(next.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  };
  queue.run(a, {}, [held = std::shared_ptr<void>(nullptr, startNext)] {}).get();
}

TEST_F(CompressionQueueTest, HandsOverEveryKindOfOutcome) {
  CompressionQueue queue(1, locks);
  auto failing = queue.run(a, {}, []() -> int { throw std::runtime_error("broken"); });
  auto badStart = queue.run(
      a, [] { throw std::runtime_error("start"); }, [&] { note("must not run"); });
  auto moveOnly =
      queue.run(a, {}, [text = std::make_unique<std::string>("kept")]() mutable { return std::move(text); });
  try {
    failing.get();
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "broken");
  }
  EXPECT_THROW(badStart.get(), std::runtime_error);
  EXPECT_EQ(*moveOnly.get(), "kept");
  CompressionQueue lockless(1, a.appending("below a file"));
  auto noPermit = lockless.run(
      b, [&] { note("must not start"); }, [&] { note("must not run"); });
  EXPECT_THROW(noPermit.get(), FileError);
  EXPECT_TRUE(events.empty());
}

TEST_F(CompressionQueueTest, KeepsItsLimitInALargeBatch) {
  CompressionQueue queue(3, locks);
  std::atomic<int> running = 0;
  std::set<std::thread::id> threads;
  std::vector<std::future<int>> futures;
  for (int i = 0; i < 2000; ++i) {
    const URL url = i % 2 ? a : folder / std::to_string(i % 50);
    futures.push_back(queue.run(url, {}, [&, i] {
      EXPECT_LE(++running, 3);
      {
        const std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
      }
      --running;
      return i;
    }));
  }
  for (int i = 0; i < 2000; ++i) EXPECT_EQ(futures[static_cast<std::size_t>(i)].get(), i);
  EXPECT_LE(threads.size(), 3U);
}

TEST_F(CompressionQueueTest, StopsWaitingJobsAndFinishesRunningOnes) {
  const ExecutionPermit elsewhere(locks, CompressionQueue::fileIdentity(b), 10);
  std::latch running(1);
  std::latch finish(1);
  CompressionQueue queue(2, locks);
  auto run = queue.run(a, {}, [&] {
    running.count_down();
    finish.wait();
    return 7;
  });
  running.wait();
  StopSource ofOne;
  auto stoppedAlone = queue.run(
      b, [&] { note("started"); }, [] {}, ofOne.token());
  ofOne.requestStop();
  EXPECT_THROW(stoppedAlone.get(), Interrupted);
  auto permitWaiting = queue.run(
      b, [&] { note("started"); }, [] {});
  auto waiting = queue.run(
      c, [&] { note("started"); }, [] {});
  queue.stop();
  EXPECT_THROW(permitWaiting.get(), Interrupted);
  EXPECT_THROW(waiting.get(), Interrupted);
  EXPECT_THROW(queue.run(c, {}, [&] { note("late"); }).get(), Interrupted);
  finish.count_down();
  EXPECT_EQ(run.get(), 7);

  {
    CompressionQueue other(1, locks);
    waiting = other.run(b, {}, [] {});  // the destructor ends its wait for the file
  }
  EXPECT_THROW(waiting.get(), Interrupted);
  EXPECT_TRUE(events.empty());
}

}  // namespace
}  // namespace tidewell
