// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/tools/ToolRunner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "support/Failure.h"
#include "support/Faults.h"
#include "support/Script.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::writeScript;
using namespace std::chrono_literals;

class ToolRunnerTest : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(files::contentsOfDirectory(temporary.url()).empty()) << "scratch directory left behind";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "child left behind";
  }
  void tool(std::string_view name, std::string_view body) const { writeScript(tools, name, body); }
  /// The description of the error that a run throws.
  std::string failure(std::string_view name, double timeout = 600, const StopToken& stop = {}) const {
    return test::textOf([&] { ToolRunner(tools.url(), stop).run(name, {}, timeout); });
  }

  const test::TemporaryFolder tools;
  const test::TemporaryFolder temporary;
  const test::ScopedEnvironment variable{"TMPDIR", temporary.url().path().c_str()};
  const ToolRunner runner{tools.url()};
};

TEST_F(ToolRunnerTest, KnowsItsTools) {
  tool("gifsicle", "exit 0");
  tools.write("plain", "no program");
  files::createDirectory(tools / "folder");
  EXPECT_TRUE(runner.has("gifsicle"));
  for (const char* name : {"missing", "plain", "folder"}) {
    EXPECT_FALSE(runner.has(name)) << name;
    EXPECT_EQ(failure(name), "缺少压缩组件：" + std::string(name));
  }
  EXPECT_FALSE(ToolRunner(tools / "nowhere").has("gifsicle"));
}

TEST_F(ToolRunnerTest, ReturnsTheHeadOfTheOutputAsRepairedText) {
  const std::size_t limit = 1'048'576;
  tools.write("exact", std::string(limit, 'x'));
  tools.write("split", std::string(limit - 1, 'x') + "潮汐");
  tool("cat", "[ $# = 0 ] || cat \"$@\"; echo noise >&2");
  const auto cat = [&](const std::string& name) { return runner.run("cat", {(tools / name).path()}, 600); };
  EXPECT_EQ(runner.run("cat", {}, 600), "");
  EXPECT_EQ(cat("exact"), std::string(limit, 'x'));
  EXPECT_EQ(cat("split"), std::string(limit - 1, 'x') + "\uFFFD");
  tools.write("broken", "潮\xFF井");
  EXPECT_EQ(cat("broken"), "潮\uFFFD井");
}

TEST_F(ToolRunnerTest, TellsHowAToolFailed) {
  std::string flags;
  std::string manyFlags;
  for (int i = 0; i < 180; ++i) flags += "🇨🇳";
  for (int i = 0; i < 500; ++i) manyFlags += "🇨🇳";
  const struct {
    std::string body;
    std::string message;
  } cases[] = {
      {"exit 1", "（退出码 1）："},
      {"printf %0500d 7 >&2; exit 3", "（退出码 3）：" + std::string(180, '0')},
      {"echo unread; printf '潮汐\\n井' >&2; exit 255", "（退出码 255）：潮汐\n井"},
      {"printf '%s' " + manyFlags + " >&2; exit 2",
       "（退出码 2）：" + flags},  // 8 bytes each, two per character
      // The read limit falls into the last character of a single cluster of combining marks.
      {"printf 'a%.0s' 1 >&2; i=0; while [ $i -lt 4096 ]; do printf '\\314\\201'; i=$((i+1)); done >&2; exit "
       "4",
       [] {
         std::string text = "（退出码 4）：a";
         for (int i = 0; i < 4095; ++i) text += "\u0301";
         return text + "\uFFFD";
       }()},
      {"kill -SEGV $$", "（退出码 11）："},
  };
  for (const auto& c : cases) {
    tool("oxipng", c.body);
    EXPECT_EQ(failure("oxipng"), "压缩组件运行失败：oxipng" + c.message);
  }
}

TEST_F(ToolRunnerTest, PassesPlatformErrorsOn) {
  tools.write("cjpegli",
              "\x7F"
              "ELF no program");
  chmod((tools / "cjpegli").path().c_str(), 0755);
  EXPECT_THROW(runner.run("cjpegli", {}, 600), FileError);
  tool("cjpegli", "exit 0");
  const test::ScopedEnvironment nowhere("TMPDIR", (tools / "nowhere").path().c_str());
  EXPECT_THROW(runner.run("cjpegli", {}, 600), FileError);
}

TEST_F(ToolRunnerTest, KeepsWhatToolsSayInFilesWithoutNames) {
  tool("look", "echo said >&2; echo \"$TMPDIR\"/*");
  const std::string nothing = temporary.url().path() + "/*\n";
  EXPECT_EQ(runner.run("look", {}, 600), nothing);
  // From the first or second such file on, what makes one fails: once, as where there are none, or always.
  for (const int point : {1, 2}) {
    test::Faults faults;
    faults.fail(point, ENOSPC);
    EXPECT_EQ(runner.run("look", {}, 600), nothing) << point;
    EXPECT_TRUE(faults.happened());
  }
  for (const auto& [point, message] :
       {std::pair(1, "无法创建文件夹“tidewell-tool-"), {2, "无法创建压缩组件日志"}}) {
    test::Faults faults;
    faults.fail(point, ENOSPC, /*lasting=*/true);
    const std::string text = failure("look");
    EXPECT_NE(text.find(message), std::string::npos) << text;
  }
}

TEST_F(ToolRunnerTest, StopsAToolThatTakesTooLong) {
  tool("slow", "echo working; echo working >&2; exec sleep 1000");
  tool("stubborn", "trap '' TERM; while :; do sleep 0.05; done");
  for (const char* name : {"slow", "stubborn"}) {
    for (const double timeout : {0.3, 0.0}) {
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(failure(name, timeout), "压缩组件运行失败：" + std::string(name) + " 超时");
      ASSERT_LT(std::chrono::steady_clock::now() - start, 15s);
    }
  }
  // Polite ones have time to tidy up. On a busy machine the tool may need longer to get as far as its trap.
  const URL tidied = tools / "tidied";
  tool("tidy", "trap \"sleep 0.3; echo > '" + tidied.path() + "'; exit\" TERM; while :; do sleep 0.05; done");
  for (double timeout = 0.3; !files::exists(tidied) && timeout < 5; timeout *= 3) failure("tidy", timeout);
  EXPECT_TRUE(files::exists(tidied));
}

TEST_F(ToolRunnerTest, EndsAtOnceWhenAStopIsRequested) {
  const test::Signpost ready(tools / "ready");
  tool("slow", "trap '' TERM; echo > " + ready.path() + "; while :; do sleep 0.05; done");
  StopSource source;
  std::thread stopper([&] {
    ready.wait();
    source.requestStop();
  });
  EXPECT_EQ(failure("slow", 600, source.token()), Interrupted().what());
  stopper.join();
  // Nothing is started any more: this would wait for a reader of the pipe.
  EXPECT_EQ(failure("slow", 600, source.token()), Interrupted().what());
}

TEST_F(ToolRunnerTest, KeepsConcurrentRunsApart) {
  tool("echo", "echo $1; sleep 0.01; echo $1");
  const auto repeat = [&](const std::string& word) {
    for (int i = 0; i < 5; ++i) EXPECT_EQ(runner.run("echo", {word}, 600), word + "\n" + word + "\n");
  };
  const std::jthread other([&] { repeat("a"); });
  repeat("b");
}

TEST_F(ToolRunnerTest, AddsSettingsWithoutOverridingTheUsers) {
  const test::ScopedEnvironment other("TIDEWELL_TEST", "潮");
  tool("env", "echo \"$TIDEWELL_TEST|$GLIBC_TUNABLES|${OMP_WAIT_POLICY-unset}\"");
  const test::ScopedEnvironment noTunables("GLIBC_TUNABLES", nullptr);
  const test::ScopedEnvironment noPolicy("OMP_WAIT_POLICY", nullptr);
  const std::string ours = runner.run("env", {}, 600);
  EXPECT_TRUE(ours.starts_with("潮|glibc.") && ours.ends_with("|passive\n")) << ours;
  {
    const test::ScopedEnvironment empty("OMP_WAIT_POLICY", "");
    EXPECT_TRUE(runner.run("env", {}, 600).ends_with("|\n"));
  }
  const test::ScopedEnvironment tunables("GLIBC_TUNABLES", "glibc.malloc.check=0");
  EXPECT_EQ(runner.run("env", {}, 600), "潮|glibc.malloc.check=0|passive\n");
}

}  // namespace
}  // namespace tidewell
