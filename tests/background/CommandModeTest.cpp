// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Process.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "engine/FakeTools.h"
#include "support/PlantedRecord.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using Strings = std::vector<std::string>;

/// The built program, copied beside tools of the test's own. It runs in `folder`, by a shell command.
class CommandModeTest : public testing::Test {
 protected:
  CommandModeTest() {
    files::createDirectory(folder / "bin");
    files::copyItem(URL::file(TIDEWELL_TEST_EXECUTABLE), folder / "bin/TidewellBackground");
    files::createDirectories(folder / "lib/tidewell");
    EXPECT_EQ(symlink(tools.directory().path().c_str(), (folder / "lib/tidewell/tools").path().c_str()), 0);
    for (const char* name : {"tmp", "pictures"}) files::createDirectory(folder / name);
    test::writeJPEGFile(folder / "pictures/photo.jpg", test::photoRaster(80, 60), {.quality = 95});
  }

  /// Leaves its output in the files "out" and "err".
  std::unique_ptr<Process> start(Strings arguments, const std::string& command) const {
    arguments.insert(arguments.begin(),
                     {"-c", "cd '" + folder.url().path() + "' && { " + command + "; } 2>err",
                      (folder / "bin/TidewellBackground").path()});
    return std::make_unique<Process>(Process::Launch{.executable = URL::file("/bin/sh"),
                                                     .arguments = std::move(arguments),
                                                     .environment = currentEnvironment()});
  }
  static int end(Process& process) {
    process.waitUntil(deadlineAfter(100), {});
    return process.terminationStatus();
  }
  int run(const Strings& arguments, const std::string& command = "exec \"$0\" \"$@\" >out") const {
    return end(*start(arguments, command));
  }
  std::string text(const char* name) const { return files::read(folder / name); }
  nlohmann::json items() const {
    const std::string output = text("out");
    EXPECT_TRUE(output.ends_with("}\n") && std::ranges::count(output, '\n') == 1) << output;
    return nlohmann::json::parse(output).at("items");
  }

  const test::TemporaryFolder folder;
  const test::FakeTools tools;
  const test::ScopedEnvironment support{"XDG_DATA_HOME", (folder / "data").path().c_str()};
  const test::ScopedEnvironment state{"XDG_STATE_HOME", (folder / "state").path().c_str()};
  const test::ScopedEnvironment temporary{"TMPDIR", (folder / "tmp").path().c_str()};
  const test::ScopedEnvironment bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere"};
};

TEST_F(CommandModeTest, ReadsItsArguments) {
  const UndoStore usual(folder / "data/Tidewell/Undo"), other(folder / "other");
  const struct {
    Strings arguments;
    Strings paths;
    bool usesOther;
  } cases[] = {
      {{}, {}, false},
      {{"--undo-root", "other", "a.txt"}, {"a.txt"}, true},
      {{"--undo-root", "other"}, {}, true},
      {{"--undo-root"}, {"--undo-root"}, false},
      {{"a.txt", "--undo-root", "other"}, {"a.txt", "--undo-root", "other"}, false},
      {{"--Undo-Root", "other", "-x"}, {"--Undo-Root", "other", "-x"}, false},
      {{"--undo-root", "other", "--undo-root", "--compress", "./a.txt", "./a.txt"},
       {"--undo-root", "--compress", "./a.txt", "./a.txt"},
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.arguments));
    // The clean-up of the batch shows which store it uses.
    const auto inUsual = test::plantRecord(usual, {0}, 1), inOther = test::plantRecord(other, {0}, 1);
    Strings arguments{"--compress"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    EXPECT_EQ(run(arguments), 0);
    Strings paths;
    for (const auto& item : items()) {
      EXPECT_EQ(item.at("outcome"), "skipped");
      paths.push_back(item.at("path").get<std::string>().substr(folder.url().path().size() + 1));
    }
    EXPECT_EQ(paths, c.paths);
    EXPECT_EQ(files::exists(usual.backupURL(inUsual)), c.usesOther);
    EXPECT_EQ(files::exists(other.backupURL(inOther)), !c.usesOther);
    EXPECT_EQ(text("err"), "");
  }
  // Anything else is resident mode, which wants a bus.
  for (const Strings& arguments : {Strings{}, {"--undo-root", "other", "--compress"}, {"--COMPRESS"}}) {
    EXPECT_EQ(run(arguments), 1);
    EXPECT_EQ(text("out"), "");
    EXPECT_NE(text("err").find("会话总线"), std::string::npos);
  }
}

TEST_F(CommandModeTest, FailsWithAFileOrWithItsOutput) {
  test::writeJPEGFile(tools.answer("jpegli-420-72.jpg"), test::photoRaster(80, 60), {.quality = 50});
  EXPECT_EQ(run({"--compress", "pictures/photo.jpg", "pictures/none.jpg"}), 1);
  EXPECT_EQ(items()[0].at("outcome"), "replaced");
  EXPECT_EQ(items()[1].at("outcome"), "failed");
  const std::pair<const char*, int> cases[] = {
      {"exec \"$0\" \"$@\" >&-", EBADF},
      {"exec \"$0\" \"$@\" >/dev/full", ENOSPC},
      {"mkfifo gone; { cat gone; \"$0\" \"$@\"; echo $? >status; } | { exec <&-; : >gone; }; exit "
       "$(cat status)",
       EPIPE}};
  for (const auto& [command, error] : cases) {
    EXPECT_EQ(run({"--compress", "pictures/photo.jpg"}, command), 1) << command;
    EXPECT_NE(text("err").find("“标准输出”：" + describeErrno(error)), std::string::npos) << text("err");
  }
}

TEST_F(CommandModeTest, EndsEarlyBySignal) {
  const test::Signpost post(folder / "post");
  tools.first("echo $$ $(ls /proc/$PPID/task | wc -l) >'" + post.path() + "'; exec sleep 1000");
  const std::string before = text("pictures/photo.jpg");
  Strings arguments{"--compress", "a.txt"};
  for (int i = 0; i < 50; ++i) {
    arguments.push_back("pictures/" + std::to_string(i) + ".jpg");
    files::copyItem(folder / "pictures/photo.jpg", folder / arguments.back());
  }
  const struct {
    int signal;
    const char* ignored;
    int sent;
  } cases[] = {{SIGINT, "''", 0}, {SIGTERM, "''", 0}, {SIGHUP, "''", 0}, {SIGTERM, "HUP", SIGHUP}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.signal);
    const auto process = start(arguments, std::string("trap '' ") + c.ignored + "; exec \"$0\" \"$@\" >out");
    // Of 51 files, only those at work have a thread.
    int tool = 0, threads = 0;
    ASSERT_EQ(sscanf(post.wait().c_str(), "%d %d", &tool, &threads), 2);
    EXPECT_LE(threads, CompressionQueue::recommendedConcurrentTasks() + 4);
    if (c.sent != 0) kill(process->identifier(), c.sent);
    kill(process->identifier(), c.signal);
    EXPECT_EQ(end(*process), 128 + c.signal);
    EXPECT_EQ(kill(tool, 0), -1);
    const auto list = items();
    ASSERT_EQ(list.size(), 51U);
    EXPECT_EQ(list[0].at("outcome"), "skipped");
    for (std::size_t i = 1; i < list.size(); ++i) {
      EXPECT_EQ(list[i].at("error"), "压缩被中断，原图未改动");
      EXPECT_EQ(text(arguments[i + 1].c_str()), before);
    }
    EXPECT_TRUE(files::contentsOfDirectory(folder / "tmp").empty());
    EXPECT_EQ(files::contentsOfDirectory(folder / "pictures").size(), 51U);
  }
}

}  // namespace
}  // namespace tidewell
