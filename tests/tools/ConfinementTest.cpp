// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Confinement.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <seccomp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/tools/ToolRunner.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

class ConfinementTest : public testing::Test {
 protected:
  /// Runs the stand-in in a folder of its own, where it may read "original" and write to "work".
  void expectToHold(const Confinement::Means& means) const {
    const test::TemporaryFolder folder;
    const auto content = [](const char* name) { return "what " + std::string(name) + " holds"; };
    const char* const files[] = {"original", "key", "victim"};
    for (const char* name : files) folder.write(name, content(name));
    files::createDirectory(folder / "work");
    const Descriptor listener = listen(folder / "socket");
    const auto changed = [&] {
      struct stat info {};
      stat((folder / "original").path().c_str(), &info);
      return std::pair(info.st_ctim.tv_sec, info.st_ctim.tv_nsec);
    };
    const auto before = changed();

    std::istringstream output(
        tools.run("confined_tool", {folder.url().path()}, 60,
                  {.readable = {folder / "original"}, .writable = {folder / "work"}, .means = means}));
    std::string name;
    int landlock = 0;
    bool filter = false, through = false;
    int attempts = 0;
    for (; output >> name >> landlock >> filter >> through; ++attempts) {
      const bool stopped = (landlock > 0 && means.landlockABI >= landlock) || (filter && means.seccomp);
      EXPECT_EQ(through, !stopped) << name << ", Landlock " << means.landlockABI << ", seccomp "
                                   << means.seccomp;
    }
    EXPECT_GT(attempts, 39);
    if (means.landlockABI == 0 || !means.seccomp) return;
    EXPECT_EQ(changed(), before);
    for (const char* file : files) EXPECT_EQ(files::read(folder / file), content(file));
    EXPECT_EQ(files::read(folder / "work/output"), content("original"));
    EXPECT_EQ(files::namesInDirectory(folder.url()).size(), 5U);
    EXPECT_EQ(files::namesInDirectory(folder / "work").size(), 1U);
  }

  const test::ScopedEnvironment variable{"TIDEWELL_CONFINE", nullptr};
  const Confinement::Means offered = Confinement::available();
  const ToolRunner tools{URL::file(TIDEWELL_TEST_EXECUTABLE).deletingLastPathComponent()};

 private:
  static Descriptor listen(const URL& url) {
    Descriptor end(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    url.path().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(end.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(end.get(), 1), 0);
    return end;
  }
};

TEST_F(ConfinementTest, HoldsWithWhateverTheKernelHas) {
  for (const int abi : {0, 1, 2, 3, offered.landlockABI}) {  // Debian 12 has the second edition
    if (abi > offered.landlockABI) continue;
    expectToHold({.landlockABI = abi, .seccomp = false});
    if (offered.seccomp) expectToHold({.landlockABI = abi, .seccomp = true});
  }
}

TEST_F(ConfinementTest, CanBeSwitchedOff) {
  const test::ScopedEnvironment off("TIDEWELL_CONFINE", "off");
  EXPECT_EQ(Confinement::available(), Confinement::Means());
  expectToHold(Confinement::available());
}

TEST_F(ConfinementTest, LetsAToolAbort) {
  try {
    tools.run("confined_tool", {}, 60);
    FAIL();
  } catch (const CompressionError& error) {
    EXPECT_STREQ(error.what(), "压缩组件运行失败：confined_tool（退出码 6）：");
  }
}

// --- Under the user unit -----------------------------------------------------------------------------------

/// The service manager's sets of system calls, by their names with "@".
std::map<std::string, std::vector<std::string>> systemCallSets() {
  std::map<std::string, std::vector<std::string>> sets;
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(
      popen("systemd-analyze --no-pager syscall-filter 2>/dev/null", "r"), &pclose);
  std::string set;
  for (char line[256]; pipe && std::fgets(line, sizeof line, pipe.get());) {
    std::string word;
    std::istringstream(line) >> word;
    if (line[0] == '@') set = word;
    if (line[0] == ' ' && word[0] != '#') sets[set].push_back(word);
  }
  return sets;
}

/// What the unit's lines "SystemCallFilter=" name.
std::vector<std::string> unitFilter() {
  std::istringstream unit(files::read(URL::file(TIDEWELL_TEST_UNIT)));
  std::vector<std::string> names = {"@default"};
  const std::string key = "SystemCallFilter=";
  for (std::string line; std::getline(unit, line);) {
    if (!line.starts_with(key)) continue;
    std::istringstream words(line.substr(key.size()));
    for (std::string word; words >> word;) names.push_back(word);
  }
  return names;
}

/// Does to this process what the service manager does for the unit: all else ends with EPERM.
bool applyFilter(std::vector<std::string> names,
                 const std::map<std::string, std::vector<std::string>>& sets) {
  const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)),
                                                                 &seccomp_release);
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (const auto set = sets.find(names[i]); set != sets.end()) {
      names.insert(names.end(), set->second.begin(), set->second.end());
    } else if (const int number = seccomp_syscall_resolve_name(names[i].c_str()); number >= 0) {
      if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, number, 0) != 0) return false;
    }
  }
  return seccomp_load(filter.get()) == 0;
}

TEST_F(ConfinementTest, HoldsUnderTheUnitsOwnFilter) {
  const auto sets = systemCallSets();
  if (!sets.contains("@system-service")) {
    ASSERT_STRNE(std::getenv("TIDEWELL_REQUIRE_TOOLS"), "1") << "no systemd-analyze";
    GTEST_SKIP() << "no systemd-analyze";
  }
  if (!offered.seccomp) GTEST_SKIP() << "no seccomp";
  const pid_t child = fork();
  if (child == 0) {
    EXPECT_TRUE(applyFilter(unitFilter(), sets));
    EXPECT_EQ(syscall(SYS_ptrace, 0, 0, 0, 0), -1) << "the filter is not active";
    EXPECT_EQ(Confinement::available(), offered);
    expectToHold(Confinement::available());
    _exit(HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace tidewell
