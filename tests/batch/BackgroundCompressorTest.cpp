// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/BackgroundCompressor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "CompressionKit/platform/Digest.h"
#include "engine/FakeTools.h"
#include "support/Faults.h"
#include "support/PlantedRecord.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

class BackgroundCompressorTest : public testing::Test {
 protected:
  /// A photo that the tools make smaller.
  URL photo(const std::string& name) const {
    test::writeJPEGFile(folder / name, test::photoRaster(80, 60), {.quality = 95});
    return folder / name;
  }
  bool hasBackup(const UndoRecord& record) const { return files::exists(undo.backupURL(record)); }

  const test::TemporaryFolder folder;
  const test::FakeTools tools;
  const UndoStore undo{folder / "data/Undo"};
  const Date now = Date::now();
  CompressionQueue queue{2, folder / "locks"};
  BackgroundCompressor compressor{CompressionEngine(ToolRunner(tools.directory()), undo, {}), queue};
};

TEST_F(BackgroundCompressorTest, GivesOneItemPerFileInTheOrderOfTheFiles) {
  for (const char* output : {"jpegli-420-72.jpg", "jpegli-444-72.jpg"}) {
    test::writeJPEGFile(tools.answer(output), test::photoRaster(80, 60), {.quality = 50});
    tools.score(output, 70.5);
  }
  const URL slow = photo("slow.jpg"), quick = photo("quick.JPG");
  const std::string done = (folder / "done").path();
  tools.first("case $1 in *.JPG) touch '" + done + "';; *) until [ -e '" + done +
              "' ]; do sleep 0.01; done;; esac");
  folder.write("broken.png", "no picture");
  const auto bytes = std::ssize(files::read(slow)),
             saved = bytes - fileSize(tools.answer("jpegli-420-72.jpg"));

  const std::vector<URL> urls{slow, folder / "notes.txt", quick, folder / "./broken.png", slow};
  const auto result = compressor.compress(urls);
  ASSERT_EQ(result.items.size(), urls.size());
  using Item = BackgroundBatchResult::Item;
  EXPECT_EQ(result.items[0], (Item{slow.path(), "replaced", bytes, bytes - saved, {}}));
  EXPECT_EQ(result.items[1], (Item{urls[1].path(), "skipped", {}, {}, "不支持的文件格式"}));
  EXPECT_EQ(result.items[2], (Item{quick.path(), "replaced", bytes, bytes - saved, {}}));
  EXPECT_EQ(result.items[3], (Item{urls[3].path(), "failed", {}, {}, "图片无法解码"}));
  // The second time there is nothing left to save.
  EXPECT_EQ(result.items[4], (Item{slow.path(), "skipped", bytes - saved, bytes - saved, {}}));
  EXPECT_GE(result.finishedAt, now);
  const auto records = undo.readRecords();
  EXPECT_EQ(records.size(), 2U);
  for (const auto& record : records) EXPECT_EQ(record.sessionID, result.sessionID);
}

TEST_F(BackgroundCompressorTest, CleansUpBeforeAndAfter) {
  const auto old = test::plantRecord(undo, now.adding(-14400), 1);
  const auto kept = test::plantRecord(undo, now.adding(-14000), 1);
  // While the batch runs, another process writes a record that is too old already.
  const UndoStore elsewhere(folder / "elsewhere");
  const auto late = test::plantRecord(elsewhere, now.adding(-20000), 1);
  tools.first("[ -e '" + undo.backupURL(old).path() + "' ] || mv '" + elsewhere.root().path() + "'/* '" +
              undo.root().path() + "'; exit 1");
  // What a killed run displaced among the photos comes back.
  const std::string content(64, '0');
  folder.write(".tidewell-" + UUID::random().string() + "/" + content + "-" + content + "/mine.txt", "work");
  EXPECT_EQ(compressor.compress({photo("a.jpg")}).failedCount(), 1);
  EXPECT_EQ(files::read(folder / "mine.txt"), "work");
  EXPECT_EQ(undo.records().size(), 3U);
  EXPECT_FALSE(hasBackup(old) || hasBackup(late));
  EXPECT_TRUE(hasBackup(kept));
}

TEST_F(BackgroundCompressorTest, MaintenanceTellsWhatComesNext) {
  EXPECT_FALSE(compressor.maintainBackups().deadline);
  const auto kept = test::plantRecord(undo, now.adding(-14000), std::int64_t{5} << 30);
  for (const double age : {14400.0, 14100.0}) {  // too old; too much
    const auto removed = test::plantRecord(undo, now.adding(-age), 1);
    if (age == 14400) {
      test::Faults faults;
      faults.fail(1, EIO, true, test::FileCall::changes);
      EXPECT_TRUE(compressor.maintainBackups().overdue);
    }
    const auto pass = compressor.maintainBackups();
    EXPECT_TRUE(pass.changed && !pass.overdue);
    EXPECT_EQ(pass.deadline, kept.createdAt.adding(14400));
    EXPECT_FALSE(hasBackup(removed));
  }
  EXPECT_FALSE(compressor.maintainBackups().changed);
  EXPECT_TRUE(hasBackup(kept));
}

}  // namespace
}  // namespace tidewell
