// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "TidewellBackground/resident/ByteCount.h"
#include "TidewellBackground/resident/CommandToken.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

TEST(ByteCountTest, isWhatTheDesktopShowsToChineseUsers) {
  // Halves go to the even number.
  std::istringstream table(
      "0 零 KB;1 1 字节;999 999 字节;1000 1 KB;1499 1 KB;1500 2 KB;2500 2 KB;2501 3 KB;"
      "15000 15 KB;999499 999 KB;999500 1 MB;1000000 1 MB;1049999 1 MB;1234567 1.2 MB;"
      "1950001 2 MB;999949999 999.9 MB;999950001 1 GB;1005000001 1.01 GB;1204000000 1.2 GB;"
      "12345678901 12.35 GB;999994999999 999.99 GB;999995000001 1 TB;5368709120000 5.37 TB;"
      "9223372036854775807 9.22 EB;");
  std::int64_t bytes = 0;
  for (std::string text; table >> bytes && std::getline(table, text, ';');) {
    EXPECT_EQ(" " + byteCountText(bytes), text) << bytes;
  }
  EXPECT_EQ(bytes, INT64_MAX);
}

TEST(CommandTokenTest, readsItsGroupOfARegularFileThatOnlyWeMayWrite) {
  const test::TemporaryFolder folder;
  const URL file = folder / "tidewell.conf";
  EXPECT_EQ(CommandToken(file).commandToken(), "");
  ASSERT_EQ(mkfifo((folder / "pipe").path().c_str(), 0600), 0);
  EXPECT_EQ(CommandToken(folder / "pipe").commandToken(), "");
  const std::string plain = "[Tidewell]\nTidewellCommandToken=abc=\n";
  const struct {
    std::string content;
    mode_t mode;
    const char* token;
  } cases[] = {{plain, 0600, "abc="},
               {"# x\nTidewellCommandToken=0\n[Other]\nTidewellCommandToken=1\n\n [Tidewell] \r\nX=2\n"
                " TidewellCommandToken = a b \r\n#TidewellCommandToken=3\n[More]\nTidewellCommandToken=4",
                0644, "a b"},
               {"TidewellCommandToken=abc\n", 0600, ""},
               {"[tidewell]\nTidewellCommandToken=abc\n[Tidewell]\ntidewellcommandtoken=abc\n", 0600, ""},
               {"[Tidewell]\nTidewellCommandToken=\n", 0600, ""},
               {plain, 0620, ""},
               {plain, 0602, ""}};
  for (const auto& c : cases) {
    folder.write("tidewell.conf", c.content);
    ASSERT_EQ(chmod(file.path().c_str(), c.mode), 0);
    EXPECT_EQ(CommandToken(file).commandToken(), c.token) << c.content << c.mode;
  }
  if (geteuid() == 0) {
    folder.write("tidewell.conf", plain);
    ASSERT_EQ(chmod(file.path().c_str(), 0600), 0);
    ASSERT_EQ(CommandToken(file).commandToken(), "abc=");
    ASSERT_EQ(chown(file.path().c_str(), 1, 0), 0);
    EXPECT_EQ(CommandToken(file).commandToken(), "");
  }
}

}  // namespace
}  // namespace tidewell
