#include "CompressionKit/engine/CompressionEngine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/InPlaceReplacement.h"
#include "CompressionKit/platform/Digest.h"
#include "engine/FakeTools.h"
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
    try {
      engine.compress(url, session);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "no failure";
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

TEST_F(Engine, RemovesWhatAKilledRunLeft) {
  const auto directory = [&](const std::string& name, double age) {
    const URL url = pictures.appending(name);
    files::createDirectory(url);
    folder.write("pictures/" + name + "/candidate.jpg", "");
    const timespec time{static_cast<time_t>(Date::now().since1970() - age), 0};
    const timespec times[] = {time, time};
    utimensat(AT_FDCWD, url.path().c_str(), times, 0);
    return url;
  };
  const std::string name = ".tidewell-" + UUID::random().string();
  const URL abandoned = directory(name, 3700);
  const URL fresh = directory(".tidewell-" + UUID::random().string(), 3500);
  const URL others = directory(name + "-mine", 3700);
  const URL locked = directory(".tidewell-" + UUID::random().string(), 3700);
  const Descriptor lock(open(locked.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);

  engine.compress(photo, session);
  EXPECT_FALSE(files::exists(abandoned));
  for (const URL& kept : {fresh, others, locked}) EXPECT_TRUE(files::exists(kept)) << kept.path();
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
  EXPECT_EQ(failure(photo), "原文件在压缩过程中被其他程序修改");
  EXPECT_EQ(files::read(photo), before + "more\n");
  EXPECT_TRUE(undo.readRecords().empty());
  EXPECT_FALSE(files::exists(undo.root().appending(session.string())));
  expectEnd("failed");
}

TEST_F(Engine, PutsTheOriginalBackWhenTheReplacementIsNotWhatWasJudged) {
  const URL working = pictures.appending("working");
  files::createDirectory(working);
  const URL candidate = working.appending("candidate.jpg");
  CompressionTrace trace(photo);
  const auto replace = [&](const ImageFacts& original, const std::string& originalHash,
                           const URL& workingDirectory) {
    files::writeAtomically(candidate, files::read(tools.answer("jpegli-420-72.jpg")));
    const CompressionRun run{
        engine,           photo, session, trace, original, std::ssize(before), originalHash,
        workingDirectory, {},    nullptr};
    replaceOriginal(run, {candidate, "encoder", {}, fileSize(candidate), false});
  };
  const ImageFacts facts = ImageFacts::inspect(photo);
  ImageFacts wider = facts;
  ++wider.width;
  EXPECT_THROW(replace(wider, hash(photo), working), CompressionError);
  EXPECT_EQ(files::read(photo), before);
  EXPECT_TRUE(undo.readRecords().empty());

  EXPECT_THROW(replace(facts, hash("something else"), working), CompressionError);
  EXPECT_EQ(files::read(photo), before);
  EXPECT_TRUE(files::exists(candidate)) << "moved although the original had changed";

  // A link that took the photo's place is somebody's doing too, although it shows the same picture.
  const URL moved = folder / "moved.jpg";
  ASSERT_EQ(rename(photo.path().c_str(), moved.path().c_str()), 0);
  ASSERT_EQ(symlink(moved.path().c_str(), photo.path().c_str()), 0);
  EXPECT_THROW(replace(facts, hash(photo), working), CompressionError);
  EXPECT_TRUE(files::resourceValues(photo).isSymbolicLink);
  ASSERT_EQ(rename(moved.path().c_str(), photo.path().c_str()), 0);

  // Where the original cannot be put back, its backup and record stay.
  EXPECT_THROW(replace(wider, hash(photo), pictures.appending("gone")), CompressionError);
  EXPECT_NE(files::read(photo), before);
  undo.restore(undo.readRecords().at(0));
  EXPECT_EQ(files::read(photo), before);

  replace(facts, hash(photo), working);  // the same road without a fault
  EXPECT_NE(files::read(photo), before);
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
