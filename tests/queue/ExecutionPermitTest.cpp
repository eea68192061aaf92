// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/queue/ExecutionPermit.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/TemporaryFolder.h"

namespace {

/// The lock files that this thread has unlocked, in order.
thread_local std::vector<std::string> unlocked;

}  // namespace

/// Stands before the C library's, to see in which order locks are freed.
extern "C" int flock(int descriptor, int operation) noexcept {
  if (operation == LOCK_UN) {
    char path[PATH_MAX] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    [[maybe_unused]] const auto length = readlink(link.c_str(), path, sizeof path - 1);
    unlocked.push_back(tidewell::URL::file(path).lastPathComponent());
  }
  return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

namespace tidewell {
namespace {

class ExecutionPermitTest : public testing::Test {
 protected:
  static std::string lockName(std::string_view key) { return "file-" + hash(key) + ".lock"; }
  /// Whether somebody holds the lock of this file.
  bool isLocked(const std::string& name) const {
    const Descriptor file(open(locks.appending(name).path().c_str(), O_RDWR | O_CLOEXEC));
    return file && flock(file.get(), LOCK_EX | LOCK_NB) != 0;
  }
  std::string failure(const URL& directory, const std::string& key, int capacity,
                      const StopToken& stop = {}) const {
    return test::textOf([&] { ExecutionPermit(directory, key, capacity, stop); });
  }
  static std::size_t openDescriptors() {
    return files::contentsOfDirectory(URL::file("/proc/self/fd")).size();
  }

  const test::TemporaryFolder folder;
  const URL locks = folder / "made/on/demand";
};

TEST_F(ExecutionPermitTest, HoldsAndFreesItsTwoLocks) {
  const std::string key = "/图片/a b.jpg";
  folder.write("made/on/demand/" + lockName(key), "contents stay");
  std::optional<ExecutionPermit> permit;
  permit.emplace(locks, key, 3);
  EXPECT_TRUE(isLocked(lockName(key)));
  EXPECT_TRUE(isLocked("slot-0.lock"));
  EXPECT_FALSE(isLocked("slot-1.lock"));
  EXPECT_FALSE(isLocked("slot-2.lock"));
  EXPECT_EQ(files::contentsOfDirectory(locks).size(), 4U);
  struct stat info {};
  ASSERT_EQ(stat(locks.appending("slot-2.lock").path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
  EXPECT_EQ(info.st_size, 0);
  EXPECT_EQ(files::read(locks.appending(lockName(key))), "contents stay");

  unlocked.clear();
  permit->release();
  EXPECT_EQ(unlocked, (std::vector<std::string>{"slot-0.lock", lockName(key)}))
      << "whoever waits for the file must find the slot free too";
  EXPECT_FALSE(isLocked(lockName(key)));
  EXPECT_FALSE(isLocked("slot-0.lock"));
  const ExecutionPermit other(locks, "/b.jpg", 3);  // gets the numbers of the closed descriptors
  permit->release();
  permit.reset();
  EXPECT_TRUE(isLocked(lockName("/b.jpg")));
  EXPECT_TRUE(isLocked("slot-0.lock"));
}

TEST_F(ExecutionPermitTest, WaitsForItsFileWithoutASlotAndTakesTheSlotThatWasFreed) {
  std::optional<ExecutionPermit> first, second;
  first.emplace(locks, "a", 2);
  std::atomic<bool> freed = false;
  const auto wait = [&](const char* key) {
    return std::async(std::launch::async, [&, key] {
      auto permit = std::make_unique<ExecutionPermit>(locks, key, 2);
      EXPECT_TRUE(freed);
      return permit;
    });
  };
  auto forFile = wait("a");
  second.emplace(locks, "b", 2);
  auto forSlot = wait("c");
  while (!isLocked(lockName("c"))) std::this_thread::yield();
  freed = true;
  second.reset();
  const auto third = forSlot.get();
  EXPECT_TRUE(isLocked("slot-1.lock"));
  EXPECT_EQ(forFile.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  first.reset();
  forFile.get();
}

TEST_F(ExecutionPermitTest, LeavesNothingHeldAfterAFailure) {
  files::createDirectories(locks.appending(lockName("folder instead")));
  files::createDirectories(locks.appending("slot-1.lock"));
  const std::size_t before = openDescriptors();
  const URL file = folder.write("file", "");
  EXPECT_THROW(ExecutionPermit(file.appending("below"), "a", 1), FileError);
  EXPECT_EQ(failure(locks, "folder instead", 1), "无法创建压缩任务锁");
  EXPECT_EQ(failure(locks, "a", 2), "无法创建压缩任务锁");
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(failure(locks, "a", 1), "no error");
}

TEST_F(ExecutionPermitTest, AStopEndsBothWaits) {
  const ExecutionPermit holder(locks, "a", 1);
  const std::size_t before = openDescriptors();
  for (const std::string key : {"a", "b"}) {  // one waits for the file, the other for the slot
    StopSource source;
    auto waiting =
        std::async(std::launch::async, [&, token = source.token()] { return failure(locks, key, 1, token); });
    while (!isLocked(lockName(key))) std::this_thread::yield();
    source.requestStop();
    EXPECT_EQ(waiting.get(), Interrupted().what());
    EXPECT_EQ(failure(locks, key, 1, source.token()), Interrupted().what());
  }
  EXPECT_FALSE(isLocked(lockName("b")));
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace tidewell
