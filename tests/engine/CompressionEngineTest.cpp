// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/CompressionEngine.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/platform/Digest.h"
#include "engine/EngineTest.h"
#include "support/Faults.h"
#include "support/HEIFFile.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

class Engine : public test::EngineTest {
 protected:
  Engine() : EngineTest("photo.JPG") {
    test::writeJPEGFile(photo, test::photoRaster(80, 60), {.quality = 95});
    test::writeJPEGFile(tools.answer("jpegli-420-72.jpg"), test::photoRaster(80, 60), {.quality = 50});
    before = files::read(photo);
  }
  /// One picture and one report with this outcome.
  void expectEnd(const std::string& outcome) const {
    EXPECT_EQ(contents(), std::vector<std::string>{"photo.JPG"});
    EXPECT_EQ(files::contentsOfDirectory(folder / "data/CompressionDiagnostics").size(), 1U);
    const auto report = test::latestReport(undo);
    EXPECT_EQ(report.at("outcome"), outcome);
    EXPECT_EQ(report.contains("selectedEncoder"), outcome == "replaced");
    EXPECT_EQ(report.contains("profile"), !tools.runs().empty()) << "known once the file was inspected";
  }
};

TEST_F(Engine, ReplacesAndKeepsWhatTheFileHad) {
  const bool tagged = setxattr(photo.path().c_str(), "user.tag", "sea", 3, 0) == 0;
  tools.first("flock -n \"${2%/*}\" touch '" + (folder / "unlocked").path() + "'");
  const CompressionResult result = compress(photo);

  EXPECT_FALSE(files::exists(folder / "unlocked")) << "the working directory looks abandoned";
  EXPECT_EQ(result.outcome, CompressionOutcome::replaced);
  EXPECT_EQ(result.encoder, "Jpegli q72 420");
  EXPECT_EQ(result.qualityScore, 95.5);
  EXPECT_EQ(result.savedBytes(), std::ssize(before) - fileSize(photo));
  EXPECT_EQ(result.finalBytes, fileSize(photo));
  char value[8] = {};
  EXPECT_EQ(getxattr(photo.path().c_str(), "user.tag", value, sizeof value), tagged ? 3 : -1);
  EXPECT_EQ(result.undoRecord.value().state, UndoRecord::State::prepared);
  expectEnd("replaced");

  const auto records = undo.readRecords();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].state, UndoRecord::State::committed);
  undo.restore(records[0]);
  EXPECT_EQ(files::read(photo), before);
}

TEST_F(Engine, KeepsTimesWhereAsked) {
  const files::Times old{.accessed = {1'000'000'000, 123'456'789}, .modified = {999'999'999, 987'654'321}};
  for (const bool keeps : {false, true}) {
    files::writeAtomically(photo, before);
    files::setTimes(photo, old);
    options.keepTimes = keeps;
    EXPECT_EQ(compress(photo).outcome, CompressionOutcome::replaced);
    const files::Times now = files::times(photo);
    EXPECT_EQ(now.modified.tv_nsec == old.modified.tv_nsec, keeps);
    EXPECT_EQ(now.accessed.tv_nsec == old.accessed.tv_nsec && now.accessed.tv_sec == old.accessed.tv_sec,
              keeps);
  }
}

TEST_F(Engine, RefusesOtherColoursUnderTheSameName) {
  const auto write = [](const URL& url, int quality, std::optional<double> gamma) {
    test::writeJPEGFile(
        url, test::photoRaster(80, 60),
        {.quality = quality, .icc = color::makeRGBProfile("Camera", color::displayP3, gamma)});
  };
  write(photo, 95, {});
  write(tools.answer("jpegli-420-72.jpg"), 50, 1.4);
  write(tools.answer("jpegli-444-72.jpg"), 50, {});
  EXPECT_EQ(compress(photo).encoder, "Jpegli q72 444");
  EXPECT_EQ(test::latestReport(undo).at("attempts").at(0).at("reason"), "metadata_mismatch");
}

TEST_F(Engine, PassesOverWhatSavesTooLittle) {
  const auto saved = std::ssize(before) - fileSize(tools.answer("jpegli-420-72.jpg"));
  const double percent = 100.0 * static_cast<double>(saved) / static_cast<double>(before.size());
  for (const auto& [minimum, isReached] : {std::pair(MinimumSaving{percent, saved}, true),
                                           {MinimumSaving{percent + 0.001, 0}, false},
                                           {MinimumSaving{0, saved + 1}, false}}) {
    files::writeAtomically(photo, before);
    options.minimumSaving = minimum;
    const CompressionResult result = compress(photo);
    EXPECT_EQ(result.originalHash, hash(before));
    EXPECT_EQ(result.passedOver, isReached ? std::nullopt : std::optional(PassedOver::belowMinimum));
    EXPECT_EQ(result.outcome == CompressionOutcome::replaced, isReached);
    EXPECT_EQ(files::read(photo) == before, !isReached);
    EXPECT_EQ(test::latestReport(undo).at("attempts").back().at("reason"),
              isReached ? "validated" : "below_minimum");
  }
}

/// Each original is what the encoder makes of it with metadata and `ballast` in it; the metadata alone comes
/// back, or nothing at all.
TEST_F(Engine, CarriesMetadataWhereAsked) {
  using namespace std::string_literals;
  const URL still = folder / "still.png", animation = folder / "animation.gif";
  test::writePNGFile(still, test::photoRaster(16, 16));
  test::writeGIFFile(animation, {.frames = {{.width = 4, .height = 4, .indexes = {1}}}});
  const std::string ballast(9000, 'b'), block = "\xFF" + std::string(255, 'b');
  const struct {
    const char *name, *output;
    std::string encoded;
    std::size_t at;
    std::string metadata, ballast;
  } cases[] = {
      {"a.jpg", "jpegli-420-72.jpg", files::read(tools.answer("jpegli-420-72.jpg")), 20, "\xFF\xFE\0\6note"s,
       "\xFF\xEB" + test::number(ballast.size() + 2, 2) + ballast},
      {"a.png", "quant-0.png", files::read(still), 33, test::pngChunk("tEXt", "Author\0me"s),
       test::pngChunk("iDOT", ballast)},
      {"a.gif", "optimized.gif", files::read(animation), files::read(animation).size() - 1,
       "\x21\xFE\4note\0"s,
       "\x21\xFF\x0B"
       "BALLAST1234" +
           block + block + block + '\0'},
  };
  for (const auto& c : cases) {
    files::writeAtomically(tools.answer(c.output), c.encoded);
    for (options.keepMetadata = true;; options.keepMetadata = false) {
      const URL image = pictures.appending(c.name);
      files::writeAtomically(image, std::string(c.encoded).insert(c.at, c.metadata + c.ballast));
      EXPECT_EQ(compress(image).outcome, CompressionOutcome::replaced) << c.name;
      std::string result = files::read(image);
      const auto found = result.find(c.metadata);
      EXPECT_EQ(found != std::string::npos, options.keepMetadata) << c.name;
      if (options.keepMetadata) result.erase(found, c.metadata.size());
      EXPECT_EQ(result, c.encoded) << c.name;
      if (!options.keepMetadata) break;
    }
  }
  options.keepMetadata = true;
  const URL motion = folder.write("pictures/motion.jpg", before +
                                                             "\0\0\0\x10"
                                                             "ftypmp42\0\0\0\0"s);
  const auto runs = tools.runs();
  EXPECT_EQ(compress(motion).passedOver, PassedOver::embeddedMedia);
  EXPECT_EQ(tools.runs(), runs);
  options.keepMetadata = false;
  EXPECT_EQ(compress(motion).outcome, CompressionOutcome::replaced);
}

/// The quantiser clips what sRGB lacks.
TEST_F(Engine, KeepsWideColorsWhereAsked) {
  const URL image = folder / "pictures/wide.png";
  const test::Raster red(16, 16, [](int, int) { return test::Pixel{255, 0, 0}; });
  for (options.keepMetadata = true;; options.keepMetadata = false) {
    test::writePNGFile(image, red, {.icc = color::makeRGBProfile("Display P3", color::displayP3)});
    const auto first = tools.runs().size();
    test::textOf([&] { compress(image); });  // the tools have no answers
    const auto runs = tools.runs();
    ASSERT_GT(runs.size(), first);
    EXPECT_EQ(runs[first].starts_with("pngquant"), !options.keepMetadata) << runs[first];
    EXPECT_EQ(test::latestReport(undo).at("attempts").at(0).at("reason"),
              options.keepMetadata ? "metadata_mismatch" : "component_error");
    if (!options.keepMetadata) break;
  }
  options.keepMetadata = true;
  files::removeItem(tools.directory().appending("pngquant"));
  test::textOf([&] { compress(image); });
  EXPECT_EQ(test::latestReport(undo).at("attempts").at(0).at("reason"), "missing_component");
}

/// Tools that leave metadata in what they make; then such that make nothing, and none at all. What stays is
/// the orientation, and every pixel.
TEST_F(Engine, StripsMetadataWhereAsked) {
  using namespace std::string_literals;
  const URL still = folder / "still.png", animation = folder / "animation.gif";
  test::writePNGFile(still, test::photoRaster(16, 16));
  test::writeGIFFile(animation, {.frames = {{.width = 4, .height = 4, .indexes = {1}}}});
  const std::string exif = test::exifWithOrientation(6);
  const struct {
    const char *name, *output;
    std::string encoded;
    std::size_t at;
    std::string orientation, secret;
  } cases[] = {
      {"a.jpg", "jpegli-420-72.jpg", files::read(tools.answer("jpegli-420-72.jpg")), 2,
       "\xFF\xE1" + test::number(exif.size() + 2, 2) + exif, "\xFF\xE5\0\x08SECRET"s},
      {"a.png", "quant-0.png", files::read(still), 33, test::pngChunk("eXIf", exif.substr(6)),
       test::pngChunk("tEXt", "Author\0SECRET"s)},
      {"a.gif", "optimized.gif", files::read(animation), files::read(animation).size() - 1, "",
       "\x21\xFE\6SECRET\0"s},
  };
  options.stripMetadata = true;
  for (const auto& c : cases) {
    const URL image = pictures.appending(c.name);
    const std::string bare = std::string(c.encoded).insert(c.at, c.orientation);
    const std::string full = std::string(c.encoded).insert(c.at, c.orientation + c.secret + c.secret);
    const auto encoder = [&](const std::string& answer, const std::string& data) {
      files::writeAtomically(tools.answer(c.output), answer);
      files::writeAtomically(image, data);
      const auto result = compress(image);
      EXPECT_EQ(result.outcome == CompressionOutcome::replaced, files::read(image) != data) << c.name;
      EXPECT_TRUE(files::read(image) == bare) << c.name;
      return result.encoder.value_or("none");
    };
    EXPECT_NE(encoder(std::string(c.encoded).insert(c.at, c.secret), full), "strip") << c.name;
    const std::string useless(1 << 20, 'x');
    const auto runs = tools.runs().size();
    EXPECT_EQ(encoder(useless, full), "strip") << c.name;
    EXPECT_GT(tools.runs().size(), runs);
    EXPECT_EQ(undo.readRecords().size(), 2U);
    options.minimumSaving = MinimumSaving{.percent = 99};
    options.recompress = false;
    const auto attempted = tools.runs();
    EXPECT_EQ(encoder(useless, full), "strip") << c.name;
    const auto reports = files::namesInDirectory(undo.diagnosticsDirectory()).size();
    EXPECT_EQ(encoder(useless, bare), "none") << c.name;
    EXPECT_EQ(tools.runs(), attempted);
    EXPECT_EQ(files::namesInDirectory(undo.diagnosticsDirectory()).size(), reports) << "nothing was tried";
    options.minimumSaving.reset();
    options.recompress = true;
    for (const auto& record : undo.readRecords()) undo.deleteRecord(record);
  }
}

/// Nobody is told that a file stays as it is while it says what was to go, here that its colours are those of
/// Adobe RGB.
TEST_F(Engine, FailsWhereMetadataCannotGo) {
  using namespace std::string_literals;
  const std::string one = "\1\0\0\0"s, end = "\0\0\0\0"s;
  test::writeJPEGFile(photo, test::photoRaster(80, 60),
                      {.exif = "Exif\0\0II*\0\x08\0\0\0"s + "\1\0\x69\x87\4\0"s + one + "\x1A\0\0\0"s + end +
                               "\1\0\1\xA0\3\0"s + one + "\2\0\0\0"s + end});
  options = {.stripMetadata = true, .recompress = false};
  EXPECT_EQ(failure(photo), "压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致");
  options.stripMetadata = false;
  EXPECT_EQ(compress(photo).passedOver, PassedOver::notSmaller);
}

TEST_F(Engine, LeavesAFileThatNothingImproves) {
  for (const char* output : {"jpegli-420-72.jpg", "jpegli-444-72.jpg"}) {
    files::writeAtomically(tools.answer(output), before);
    tools.score(output, 70.5);
  }
  const CompressionResult result = compress(photo);
  EXPECT_EQ(result.outcome, CompressionOutcome::skipped);
  EXPECT_EQ(result.finalBytes, result.originalBytes);
  EXPECT_FALSE(result.encoder || result.qualityScore || result.undoRecord);
  EXPECT_EQ(result.passedOver, PassedOver::notSmaller);
  EXPECT_EQ(files::read(photo), before);
  EXPECT_TRUE(undo.readRecords().empty());
  EXPECT_EQ(result.originalHash, hash(before));
  expectEnd("skipped");
  tools.first("touch '" + photo.path() + "'");
  EXPECT_FALSE(compress(photo).originalHash) << "who knows what the tools saw";
}

TEST_F(Engine, RefusesWhatIsNoPlainLocalFile) {
  const URL remote = *URL::parse("https://example.org/photo.jpg");
  EXPECT_EQ(test::textOf([&] { compress(remote); }), "请选择本地图片文件");
  EXPECT_FALSE(files::exists(folder / "data"));
  const URL link = folder / "link.jpg";
  ASSERT_EQ(symlink(photo.path().c_str(), link.path().c_str()), 0);
  EXPECT_EQ(failure(link), "请选择普通图片文件");
  expectEnd("failed");
  EXPECT_EQ(failure(folder.write("pictures/notes.txt", "x")), "图片无法解码");
  EXPECT_TRUE(tools.runs().empty());
}

TEST_F(Engine, NeverReplacesAFileThatChangedMeanwhile) {
  tools.first("echo more >> '" + photo.path() + "'");
  EXPECT_EQ(failure(photo), "原文件在压缩过程中被其他程序修改");
  EXPECT_EQ(files::read(photo), before + "more\n");
  EXPECT_TRUE(undo.readRecords().empty());
  expectEnd("failed");
}

/// Another file comes under the name at any moment of the first look, in place of an image or of none, or a
/// call fails: what is replaced is what was seen.
TEST_F(Engine, JudgesByTheFileThatItFound) {
  const URL turned = folder / "turned.jpg";
  test::writeJPEGFile(turned, test::photoRaster(80, 60), {.exif = test::exifWithOrientation(6)});
  for (const auto& [first, fails] :
       {std::pair(before, false), {std::string("a film"), false}, {before, true}}) {
    int point = 1;
    for (bool isFirstLook = true; isFirstLook; ++point) {
      files::writeAtomically(photo, first);
      const auto runs = tools.runs().size();
      isFirstLook = false;
      test::Faults faults;
      const auto change = [&, fails = fails] {
        isFirstLook = tools.runs().size() == runs;
        if (!fails) files::writeAtomically(photo, files::read(turned));
      };
      faults.at(point, change, test::FileCall::canFail);
      if (fails) faults.fail(point, EIO);
      if (test::textOf([&] { compress(photo); }) != "no error") continue;
      const auto record = undo.readRecords().at(0);
      const URL backup = undo.backupURL(record);
      EXPECT_EQ(ImageFacts::inspect(photo).orientation, ImageFacts::inspect(backup).orientation)
          << faults.where();
      EXPECT_TRUE(!fails || record.originalHash == hash(before)) << faults.where();
      undo.deleteRecord(record);
    }
    EXPECT_GT(point, 4);
  }
}

/// Another program writes to the finished output at any moment.
TEST_F(Engine, ReplacesOnlyByWhatItHasJudged) {
  const URL wide = folder / "wide.jpg";
  test::writeJPEGFile(wide, test::photoRaster(81, 60), {.quality = 40});
  int refused = 0;
  for (int point = 1, happened = 1; happened != 0; ++point) {
    files::writeAtomically(photo, before);
    test::Faults faults;
    const auto write = [&] {
      for (const auto& name : files::namesInDirectory(pictures)) {
        const URL output = pictures.appending(name).appending("jpegli-420-72.jpg");
        if (files::exists(output)) files::writeAtomically(output, files::read(wide));
      }
    };
    faults.at(point, write, test::FileCall::changes);
    refused += test::textOf([&] { compress(photo); }) != "no error" ? 1 : 0;
    happened = faults.happened();
    EXPECT_EQ(ImageFacts::inspect(photo).width, 80) << faults.where();
  }
  EXPECT_GT(refused, 0);
}

TEST_F(Engine, ScoresALargeImageByTheWorseOfItsViews) {
  const URL large = pictures.appending("large.png");
  test::writePNGFile(large, test::Raster(4001, 2000, [](int, int) {
                       return test::Pixel{90, 120, 150, 255};
                     }));
  for (const char* output : {"quant-0.png", "quant-1.png"}) files::copyItem(large, tools.answer(output));
  files::writeAtomically(large, test::withChunk(files::read(large), "baLl", std::string(9000, 'b')));
  tools.score("detail-1.png", 10);
  tools.first("case \"$*\" in *quant-1*) rm \"$here/scores/detail-1.png\";; esac");
  EXPECT_EQ(compress(large).encoder, "pngquant q90 floyd1.0 s4");
  for (const char* view : {"overview", "detail"}) {
    const auto run = "ssimulacra2 " + std::string(view) + "-0.png " + view + "-1.png";
    EXPECT_EQ(std::ranges::count(tools.runs(), run), 2) << "with the original's view written once";
  }
}

TEST(CompressionValues, Derive) {
  CompressionResult result;
  EXPECT_EQ(result.savedRatio(), 0);
  result.originalBytes = 1000;
  result.finalBytes = 750;
  EXPECT_EQ(result.savedRatio(), 0.25);
  EXPECT_EQ(CompressionOutcome::fromRawValue("converted"), CompressionOutcome::converted);
  EXPECT_FALSE(CompressionOutcome::fromRawValue("Replaced"));
  EXPECT_STREQ(CompressionError::validationFailed().what(), "压缩结果未通过验证");
}

}  // namespace
}  // namespace tidewell
