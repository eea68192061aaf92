// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/OutputMemory.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "CompressionKit/platform/Files.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

std::string hashOf(int number) {
  const std::string digits = std::to_string(number);
  return std::string(64 - digits.size(), '0') + digits;
}

OutputMemory::Output output(int number) {
  return {.hash = hashOf(number),
          .madeFrom = hashOf(number + 1),
          .when = {800'000'000.5 + number},
          .encoder = "pngquant",
          .score = 87.5,
          .bytes = 100 + number,
          .tools = "pngquant 3"};
}

class OutputMemoryTest : public testing::Test {
 protected:
  /// As another program would.
  void run(const char* sql) const {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file.path().c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }

  const test::TemporaryFolder folder;
  const URL file = folder / "state/tidewell/outputs.db";
};

TEST_F(OutputMemoryTest, KnowsOutputsAndWhatCannotBeMadeSmaller) {
  OutputMemory first(file), second(file);
  auto plain = output(3), newer = output(5);
  plain.encoder.reset();
  plain.score.reset();
  newer.madeFrom = output(1).madeFrom;
  for (const auto& made : {output(1), plain, newer}) {
    EXPECT_FALSE(second.output(made.hash));
    first.remember(made);
    EXPECT_EQ(second.output(made.hash), made);
    EXPECT_EQ(second.madeFrom(made.madeFrom), made);
  }
  for (const int number : {9, 1}) {
    for (const char* tools : {"tools 1", "tools 2"}) {
      EXPECT_FALSE(second.knowsNothingSmaller(hashOf(number), tools));
      first.rememberNothingSmaller(hashOf(number), 1, tools);
      EXPECT_EQ(second.knowsNothingSmaller(hashOf(number), tools), number == 9);  // the other stays an output
    }
  }
  EXPECT_EQ(second.output(hashOf(1)), output(1));
  EXPECT_FALSE(second.output(hashOf(9)));
  struct stat info {};
  EXPECT_EQ(stat(file.deletingLastPathComponent().path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700U);
}

TEST_F(OutputMemoryTest, IsBounded) {
  OutputMemory memory(file, 40);
  const auto count = [&](int from, int to) {
    int known = 0;
    for (int i = from; i < to; ++i) {
      known += memory.output(hashOf(i)) || memory.knowsNothingSmaller(hashOf(i), "t") ? 1 : 0;
    }
    return known;
  };
  for (int i = 0; i < 30; ++i) memory.rememberNothingSmaller(hashOf(1000 + i), 1, "t");
  for (int i = 0; i < 30; ++i) memory.remember(output(i));
  EXPECT_EQ(count(0, 30), 30);
  EXPECT_LE(count(1000, 1030), 10);
  EXPECT_GE(count(1000, 1030), 7);
  for (int i = 30; i < 80; ++i) memory.remember(output(i));
  EXPECT_EQ(count(1000, 1030), 0);
  EXPECT_EQ(count(45, 80), 35);
  EXPECT_LE(count(0, 80), 40);
}

TEST_F(OutputMemoryTest, DamageCostsNoMoreThanWhatWasRemembered) {
  const struct {
    const char* what;
    std::function<void()> damage;
    bool works;  ///< afterwards, with what is remembered from then on
    bool knows;  ///< what was remembered before
  } rows[] = {
      {"none", [] {}, true, true},
      {"garbage", [&] { files::writeAtomically(file, std::string(50'000, 'x')); }, true, false},
      {"half", [&] { EXPECT_EQ(truncate(file.path().c_str(), 5000), 0); }, true, false},
      {"a folder",
       [&] {
         files::removeItem(file);
         files::createDirectory(file);
       },
       false, false},
      {"no folder",
       [&] {
         files::removeItem(folder / "state");
         folder.write("state", "");
       },
       false, false},
      {"later version", [&] { run("PRAGMA user_version = 2"); }, false, false},
      {"another's", [&] { run("DROP TABLE outputs; CREATE VIEW outputs AS SELECT 1 AS hash"); }, false,
       false},
  };
  for (const auto& [what, damage, works, knows] : rows) {
    SCOPED_TRACE(what);
    files::removeItemIfPossible(folder / "state");
    OutputMemory before(file);
    for (int i = 0; i < 20; i += 2) before.remember(output(i));
    ASSERT_TRUE(before.output(hashOf(2)));
    damage();
    OutputMemory after(file);
    EXPECT_EQ(after.output(hashOf(2)).has_value(), knows);
    after.remember(output(100));
    EXPECT_EQ(after.output(hashOf(100)).has_value(), works);
    before.remember(output(200));  // whatever becomes of it
    EXPECT_EQ(OutputMemory(file).output(hashOf(100)).has_value(), works);
  }
}

TEST_F(OutputMemoryTest, IsSharedByThreadsAndProcesses) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  OutputMemory shared(file);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      OutputMemory own(file);
      for (int i = 0; i < 8; ++i) (thread % 2 == 0 ? own : shared).remember(output(2 * (thread * 8 + i)));
    });
  }
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < 32; ++i) EXPECT_TRUE(shared.output(hashOf(2 * i))) << i;
}

}  // namespace
}  // namespace tidewell
