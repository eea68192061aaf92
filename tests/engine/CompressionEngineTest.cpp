#include "CompressionKit/engine/CompressionEngine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Digest.h"
#include "engine/FakeTools.h"
#include "support/Failure.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

class Engine : public testing::Test {
 protected:
  void SetUp() override {
    test::writeJPEGFile(photo, test::photoRaster(80, 60), {.quality = 95});
    test::writeJPEGFile(tools.answer("jpegli-420-72.jpg"), test::photoRaster(80, 60), {.quality = 50});
    before = files::read(photo);
  }
  /// However a run ends: no working directory, and one report with this outcome.
  void expectEnd(const std::string& outcome) const {
    for (const URL& entry : files::contentsOfDirectory(pictures)) {
      EXPECT_FALSE(entry.lastPathComponent().starts_with(".")) << entry.path();
    }
    const auto reports = files::contentsOfDirectory(folder / "data/CompressionDiagnostics");
    ASSERT_EQ(reports.size(), 1U);
    const auto report = nlohmann::json::parse(files::read(reports[0]));
    EXPECT_EQ(report.at("outcome"), outcome);
    EXPECT_EQ(report.contains("selectedEncoder"), outcome == "replaced");
    EXPECT_EQ(report.contains("profile"), !tools.runs().empty()) << "known once the file was inspected";
  }
  /// The text of the error that a run throws.
  std::string failure(const URL& url) const {
    return test::textOf([&] { engine.compress(url, session); });
  }

  const test::TemporaryFolder folder;
  const test::FakeTools tools;
  const URL pictures = folder.write("pictures/photo.JPG", "").deletingLastPathComponent();
  const URL photo = pictures.appending("photo.JPG");
  const UndoStore undo{folder / "data/Undo"};
  const UUID session = UUID::random();
  const CompressionEngine engine{ToolRunner(tools.directory()), undo, {}};
  std::string before;
};

TEST_F(Engine, ReplacesAndKeepsWhatTheFileHad) {
  test::writeJPEGFile(photo, test::photoRaster(80, 60),
                      {.quality = 95, .exif = test::exifWithOrientation(6)});
  before = files::read(photo);
  ASSERT_EQ(chmod(photo.path().c_str(), 0604), 0);
  const bool tagged = setxattr(photo.path().c_str(), "user.tag", "sea", 3, 0) == 0;
  tools.first("flock -n \"${2%/*}\" touch '" + (folder / "unlocked").path() + "'");
  const CompressionResult result = engine.compress(photo, session);

  EXPECT_FALSE(files::exists(folder / "unlocked")) << "the working directory looks abandoned";
  EXPECT_EQ(result.outcome, CompressionOutcome::replaced);
  EXPECT_EQ(result.encoder, "Jpegli q72 420");
  EXPECT_EQ(result.qualityScore, 95.5);
  EXPECT_EQ(result.savedBytes(), std::ssize(before) - fileSize(photo));
  EXPECT_EQ(ImageFacts::inspect(photo).orientation, 6);
  EXPECT_EQ(result.finalBytes, fileSize(photo));
  struct stat status {};
  ASSERT_EQ(stat(photo.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0604U);
  char value[8] = {};
  EXPECT_EQ(getxattr(photo.path().c_str(), "user.tag", value, sizeof value), tagged ? 3 : -1);
  ASSERT_TRUE(result.undoRecord);
  EXPECT_EQ(result.undoRecord->state, UndoRecord::State::prepared);
  const auto records = undo.readRecords();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].state, UndoRecord::State::committed);
  expectEnd("replaced");

  undo.restore(records[0]);
  EXPECT_EQ(files::read(photo), before);
}

TEST_F(Engine, LeavesAFileThatNothingImproves) {
  for (const char* output : {"jpegli-420-72.jpg", "jpegli-444-72.jpg"}) {
    files::writeAtomically(tools.answer(output), before);
    tools.score(output, 70.5);
  }
  const CompressionResult result = engine.compress(photo, session);
  EXPECT_EQ(result.outcome, CompressionOutcome::skipped);
  EXPECT_EQ(result.finalBytes, result.originalBytes);
  EXPECT_FALSE(result.encoder || result.qualityScore || result.undoRecord);
  EXPECT_EQ(files::read(photo), before);
  EXPECT_TRUE(undo.readRecords().empty());
  expectEnd("skipped");
}

TEST_F(Engine, RefusesWhatIsNoPlainLocalFile) {
  EXPECT_EQ(failure(*URL::parse("https://example.org/photo.jpg")), "请选择本地图片文件");
  EXPECT_FALSE(files::exists(folder / "data"));
  const URL link = folder / "link.jpg";
  ASSERT_EQ(symlink(photo.path().c_str(), link.path().c_str()), 0);
  EXPECT_EQ(failure(link), "请选择普通图片文件");
  expectEnd("failed");
  files::createDirectory(folder / "folder.jpg");
  EXPECT_EQ(failure(folder / "folder.jpg"), "请选择普通图片文件");
  EXPECT_TRUE(tools.runs().empty());
}

TEST_F(Engine, NeverReplacesAFileThatChangedMeanwhile) {
  tools.first("echo more >> '" + photo.path() + "'");
  EXPECT_EQ(failure(photo), CompressionError::changedDuringCompression().what());
  EXPECT_EQ(files::read(photo), before + "more\n");
  EXPECT_TRUE(undo.readRecords().empty());
  EXPECT_FALSE(files::exists(undo.root().appending(session.string())));
  expectEnd("failed");
}

TEST(CompressionResult, Derives) {
  CompressionResult result;
  EXPECT_EQ(result.savedRatio(), 0);
  result.originalBytes = 1000;
  result.finalBytes = 750;
  EXPECT_EQ(result.savedRatio(), 0.25);
  EXPECT_EQ(CompressionOutcome::fromRawValue("converted"), CompressionOutcome::converted);
  EXPECT_FALSE(CompressionOutcome::fromRawValue("Replaced"));
}

}  // namespace
}  // namespace tidewell
