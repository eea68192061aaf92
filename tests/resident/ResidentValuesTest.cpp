#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "TidewellBackground/resident/ByteCount.h"
#include "TidewellBackground/resident/CommandToken.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

TEST(ByteCountTest, isWhatTheDesktopShowsToChineseUsers) {
  const std::vector<std::pair<std::int64_t, const char*>> table{
      {0, "零 KB"},
      {1, "1 字节"},
      {999, "999 字节"},
      {1000, "1 KB"},
      {1499, "1 KB"},
      {1500, "2 KB"},
      {2500, "2 KB"},  // half to even
      {2501, "3 KB"},
      {15'000, "15 KB"},
      {999'499, "999 KB"},
      {999'500, "1 MB"},
      {1'000'000, "1 MB"},
      {1'049'999, "1 MB"},
      {1'234'567, "1.2 MB"},
      {1'950'001, "2 MB"},
      {999'949'999, "999.9 MB"},
      {999'950'001, "1 GB"},
      {1'005'000'001, "1.01 GB"},
      {1'204'000'000, "1.2 GB"},
      {12'345'678'901, "12.35 GB"},
      {999'994'999'999, "999.99 GB"},
      {999'995'000'001, "1 TB"},
      {5'368'709'120'000, "5.37 TB"},
      {INT64_MAX, "9.22 EB"},
  };
  for (const auto& [bytes, text] : table) EXPECT_EQ(byteCountText(bytes), text) << bytes;
}

struct TokenCase {
  const char* name;
  std::string content;
  mode_t mode;
  std::string token;
};

class CommandTokenTest : public testing::TestWithParam<TokenCase> {};

TEST_P(CommandTokenTest, read) {
  const test::TemporaryFolder folder;
  const URL file = folder.write("tidewell.conf", GetParam().content);
  ASSERT_EQ(chmod(file.path().c_str(), GetParam().mode), 0);
  EXPECT_EQ(CommandToken(file).commandToken(), GetParam().token);
}

INSTANTIATE_TEST_SUITE_P(
    , CommandTokenTest,
    testing::ValuesIn(std::vector<TokenCase>{
        {"Plain", "[Tidewell]\nTidewellCommandToken=abc=\n", 0600, "abc="},
        {"AmongOthers",
         "# x\nTidewellCommandToken=0\n[Other]\nTidewellCommandToken=1\n\n [Tidewell] \r\nX=2\n"
         " TidewellCommandToken = a b \r\n#TidewellCommandToken=3\n[More]\nTidewellCommandToken=4",
         0644, "a b"},
        {"NoGroup", "TidewellCommandToken=abc\n", 0600, ""},
        {"OtherCase", "[tidewell]\nTidewellCommandToken=abc\n[Tidewell]\ntidewellcommandtoken=abc\n", 0600,
         ""},
        {"Empty", "[Tidewell]\nTidewellCommandToken=\n", 0600, ""},
        {"WritableByGroup", "[Tidewell]\nTidewellCommandToken=abc\n", 0620, ""},
        {"WritableByAll", "[Tidewell]\nTidewellCommandToken=abc\n", 0602, ""},
    }),
    [](const auto& test) { return test.param.name; });

TEST(CommandTokenFileTest, onlyARegularFileOfOurs) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(CommandToken(folder / "absent").commandToken(), "");
  ASSERT_EQ(mkfifo((folder / "pipe").path().c_str(), 0600), 0);
  EXPECT_EQ(CommandToken(folder / "pipe").commandToken(), "");
  if (geteuid() == 0) {
    const URL file = folder.write("tidewell.conf", "[Tidewell]\nTidewellCommandToken=abc\n");
    ASSERT_EQ(CommandToken(file).commandToken(), "abc");
    ASSERT_EQ(chown(file.path().c_str(), 1, 0), 0);
    EXPECT_EQ(CommandToken(file).commandToken(), "");
  }
}

}  // namespace
}  // namespace tidewell
