// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <unistd.h>

#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/platform/Digest.h"
#include "engine/EngineTest.h"
#include "support/Faults.h"
#include "support/HEICSample.h"
#include "support/Script.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

class HEICConversion : public test::EngineTest {
 protected:
  HEICConversion() : EngineTest("photo.HEIC") {}
  void SetUp() override {
    TIDEWELL_NEEDS_HEIF_ENCODER();
    file = test::encodeHEIC(test::slopes()).with(test::irot(3));
    file.write(photo);
    before = files::read(photo);
    test::writePNGFile(tools.answer("quant-0.png"), flat(64));
  }
  static test::Raster flat(int width) {
    return {width, 96, [](int, int) { return test::Pixel{90, 90, 60, 255}; }};
  }
  /// A stand-in for the decoder, for which "decode" is the real one.
  void decodeBy(const std::string& commands) {
    const std::string real = "decode() { '" + HEICProgram().url.path() + "' \"$@\"; }\n";
    decoder.url = test::writeScript(folder, "heic-decoder", real + commands);
  }
  void writeMine(const std::string& name) const { folder.write("pictures/" + name, "mine"); }

  const URL png = pictures.appending("photo.png");
  test::HEIFFile file;  ///< 96 x 64, to be shown upright
};

TEST_F(HEICConversion, SavesACompressedPNGThatUndoTakesBack) {
  options.keepTimes = true;
  const files::Times times = files::times(photo);
  const CompressionResult result = compress(photo);
  EXPECT_EQ(files::times(png).modified.tv_nsec, times.modified.tv_nsec);
  EXPECT_EQ(files::times(png).accessed.tv_nsec, times.accessed.tv_nsec);
  EXPECT_EQ(result.url.path(), png.path());
  EXPECT_EQ(result.outcome, CompressionOutcome::converted);
  EXPECT_EQ(result.encoder, "HEIC → PNG · pngquant q90 floyd0.25 s1");
  EXPECT_EQ(result.qualityScore, 95.5);
  EXPECT_EQ(result.originalBytes, std::ssize(before));
  EXPECT_EQ(result.finalBytes, fileSize(png));
  EXPECT_EQ(files::read(png), files::read(tools.answer("quant-0.png")));
  EXPECT_EQ(files::read(photo), before);
  EXPECT_EQ(contents(), (std::vector<std::string>{"photo.HEIC", "photo.png"}));
  EXPECT_EQ(test::latestReport(undo).at("selectedEncoder"), *result.encoder);

  const auto records = undo.readRecords();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].state, UndoRecord::State::committed);
  EXPECT_EQ(records[0].convertedPath, png.path());
  EXPECT_EQ(result.undoRecord.value().state, UndoRecord::State::prepared);
  undo.restore(records[0]);
  EXPECT_EQ(contents(), std::vector<std::string>{"photo.HEIC"});
  EXPECT_EQ(files::read(photo), before);
  EXPECT_TRUE(undo.readRecords().empty());
}

TEST_F(HEICConversion, CarriesMetadataWhereAsked) {
  file.items.push_back({2, "Exif", false, {}, test::number(6, 4) + test::exifWithOrientation(6)});
  file.references.push_back({"cdsc", 2, {1}});
  file.write(photo);
  for (const bool keeps : {true, false}) {
    options.keepMetadata = keeps;
    EXPECT_EQ(compress(photo).finalBytes > fileSize(tools.answer("quant-0.png")), keeps);
    EXPECT_EQ(metadata::entries(png).empty(), !keeps);
    files::removeItem(png);
  }
  // What an encoder puts in goes, and where none may run there is no PNG.
  const std::string plain = files::read(tools.answer("quant-0.png"));
  files::writeAtomically(tools.answer("quant-0.png"), test::withChunk(plain, "tEXt", "Author"));
  options.stripMetadata = true;
  compress(photo);
  EXPECT_EQ(files::read(png), plain);
  files::removeItem(png);
  options.recompress = false;
  EXPECT_EQ(compress(photo).passedOver, PassedOver::notSmaller);
  EXPECT_FALSE(files::exists(png));
}

TEST_F(HEICConversion, KeepsThePlainPNGWhenNothingIsSmaller) {
  for (const char* output : {"quant-0.png", "quant-1.png", "quant-2.png", "quant-3.png", "lossless.png"}) {
    files::writeAtomically(tools.answer(output), std::string(1 << 20, 'x'));
  }
  const CompressionResult result = compress(photo);
  EXPECT_EQ(result.encoder, "HEIC → PNG · 无损 PNG");
  EXPECT_FALSE(result.qualityScore);
  EXPECT_EQ(ImageFacts::inspect(png).width, 64);

  EXPECT_GT(result.finalBytes, result.originalBytes);
  files::removeItem(png);
  options.minimumSaving = MinimumSaving{};
  EXPECT_EQ(compress(photo).passedOver, PassedOver::belowMinimum);
  EXPECT_EQ(contents(), std::vector<std::string>{"photo.HEIC"});
}

/// A link to nothing is a name that looks free until the very moment of saving.
TEST_F(HEICConversion, TakesTheFirstFreeNameAndNeverAnother) {
  ASSERT_EQ(symlink("nowhere", png.path().c_str()), 0);
  writeMine("photo（潮汐井1）.png");
  const CompressionResult result = compress(photo);
  EXPECT_EQ(result.url.lastPathComponent(), "photo（潮汐井2）.png");
  EXPECT_EQ(files::read(pictures.appending("photo（潮汐井1）.png")), "mine");
  EXPECT_FALSE(files::exists(png));
  EXPECT_EQ(undo.readRecords().size(), 1U) << "that of the attempt in between is gone";
  EXPECT_EQ(undo.readRecords().front().convertedPath, result.url.path());
  EXPECT_EQ(files::contentsOfDirectory(undo.root().appending(session.string())).size(), 2U);
}

TEST_F(HEICConversion, FailuresLeaveNothing) {
  file.items.push_back(file.items.front());
  file.items.back().id = 2;
  file.write(pictures.appending("two.heic"));
  EXPECT_EQ(failure(pictures.appending("two.heic")), "暂不支持包含多张图片的 HEIC 文件");
  EXPECT_TRUE(tools.runs().empty());

  tools.first("exit 5");
  EXPECT_TRUE(failure(photo).starts_with("压缩组件运行失败：")) << "the tools' own failure";
  tools.first("echo more > '" + photo.path() + "'");
  EXPECT_EQ(failure(photo), "原文件在压缩过程中被其他程序修改");
  EXPECT_EQ(files::read(photo), "more\n");
  tools.first("");
  files::writeAtomically(photo, before);

  // The first name is taken, and the next is too long for the file system.
  const std::string longest(250, 'n');
  file.items.pop_back();
  file.write(pictures.appending(longest + ".heic"));
  writeMine(longest + ".png");
  EXPECT_EQ(failure(pictures.appending(longest + ".heic")), "保存 PNG 失败：File name too long");

  writeMine("photo.png");
  for (int i = 1; i < 1000; ++i) writeMine("photo（潮汐井" + std::to_string(i) + "）.png");
  EXPECT_EQ(failure(photo), "无法创建 PNG：同名文件过多");
  files::removeItem(pictures.appending("photo（潮汐井999）.png"));
  EXPECT_EQ(compress(photo).url.lastPathComponent(), "photo（潮汐井999）.png");
}

/// Another program writes to the HEIC file, or to the finished PNG, at any moment at which a file is made or
/// moved.
TEST_F(HEICConversion, SavesOnlyWhatItHasJudged) {
  test::writePNGFile(folder / "wide.png", flat(65));
  for (const bool changesPNG : {true, false}) {
    for (int move = 1, happened = 1; happened != 0; ++move) {
      files::writeAtomically(photo, before);
      bool isSaved = false;
      test::Faults faults;
      faults.at(
          move,
          [&] {
            isSaved = files::exists(png);
            if (!changesPNG) return files::writeAtomically(photo, before + "more");
            for (const auto& name : files::namesInDirectory(pictures)) {
              for (const char* finished : {"decoded.png", "png/quant-0.png"}) {
                const URL found = pictures.appending(name).appending(finished);
                if (files::exists(found)) files::writeAtomically(found, files::read(folder / "wide.png"));
              }
            }
          },
          changesPNG ? test::FileCall::changes : test::FileCall::moves);
      const bool isDone = test::textOf([&] { compress(photo); }) == "no error";
      happened = faults.happened();
      if (isDone) {
        const bool isTheSwap = faults.where().ends_with(png.path());  // after the last look
        EXPECT_TRUE(changesPNG || isSaved || isTheSwap || happened == 0) << move << " " << faults.where();
        EXPECT_EQ(ImageFacts::inspect(png).width, 64) << move << " " << faults.where();
      }
      files::removeItemIfPossible(png);
    }
  }
}

/// The last tool, whose own output is no smaller, writes to what will be saved: the smallest candidate, or
/// the decoded image where there is none.
TEST_F(HEICConversion, LooksAgainAtAPNGThatChanged) {
  const auto other = [](int, int) { return test::Pixel{1, 2, 3, 255}; };
  test::writePNGFile(folder / "sound.png", test::Raster(64, 96, other));
  test::writePNGFile(folder / "wide.png", flat(65));
  folder.write("broken.png", files::read(folder / "sound.png").substr(0, 60));
  const std::string large(1 << 20, 'x');
  const struct {
    const char* last;
    const char* saved;
    std::vector<const char*> answers;
  } ends[] = {
      {"palette-opt.png", "quant-0.png", {"palette-opt.png"}},
      {"lossless.png",
       "../decoded.png",
       {"quant-0.png", "quant-1.png", "quant-2.png", "quant-3.png", "lossless.png"}},
  };
  for (const auto& end : ends) {
    for (const char* answer : end.answers) files::writeAtomically(tools.answer(answer), large);
    for (const auto& [name, verdict] : {std::pair("sound.png", "no error"),
                                        {"broken.png", "图片无法解码"},
                                        {"wide.png", "原文件在压缩过程中被其他程序修改"}}) {
      const URL changed = folder / name;
      tools.first("for a; do case $a in */" + std::string(end.last) + ") cp '" + changed.path() +
                  "' \"${a%/*}/" + end.saved + "\";; esac; done");
      CompressionResult result;
      EXPECT_EQ(test::textOf([&] { result = compress(photo); }), verdict) << name << " " << end.saved;
      EXPECT_EQ(files::exists(png), result.finalHash.has_value());
      if (!result.finalHash) continue;
      EXPECT_EQ(result.finalHash, hash(changed));
      EXPECT_EQ(result.finalBytes, fileSize(changed));
      EXPECT_EQ(files::read(png), files::read(changed));
      files::removeItem(png);
    }
  }
}

TEST_F(HEICConversion, DecodesOnce) {
  decodeBy("echo \"$@\" >> '" + (folder / "runs").path() + "'; decode \"$@\"");
  EXPECT_EQ(compress(photo).outcome, CompressionOutcome::converted);
  EXPECT_EQ(files::read(folder / "runs"), "convert\n");
}

TEST_F(HEICConversion, TakesNothingFromTheDecoderOnTrust) {
  const auto grey = [](int, int) { return test::Pixel{90, 90, 60, 255}; };
  test::writePNGFile(folder / "other.png", test::Raster(96, 64, grey));
  test::writePNGFile(folder / "upright.png", test::Raster(64, 96, grey));
  folder.write("turned.png", test::withChunk(files::read(folder / "upright.png"), "eXIf",
                                             test::exifWithOrientation(3).substr(6)));
  const std::string invalid = "图片无法解码";
  const struct {
    const char* commands;
    std::string failure;
  } cases[] = {{"decode \"$@\"; kill -SEGV $$", invalid},
               {"decode \"$@\" 4>/dev/full", invalid},
               {"echo '1 96 64 6 0 1' >&3", invalid},
               {"echo '1 96 64 6 0 1' >&3; echo no picture >&4", invalid},
               {"echo '1 96 64 6 0 1' >&3; cat other.png >&4", "压缩结果未通过验证"},
               {"echo '1 96 65 1 0 1' >&3; cat other.png >&4", "压缩结果未通过验证"},
               {"echo '1 64 96 1 0 1' >&3; cat turned.png >&4", "压缩结果未通过验证"},
               {"echo '1 96 64 6 0 0' >&3; cat upright.png >&4", invalid},
               {"echo '2 96 64 1 0 0' >&3", "暂不支持包含多张图片的 HEIC 文件"},
               {"decode \"$@\"; echo more >> pictures/photo.HEIC", "原文件在压缩过程中被其他程序修改"}};
  for (const auto& c : cases) {
    decodeBy("cd '" + folder.url().path() + "'\n" + c.commands);
    EXPECT_EQ(failure(photo), c.failure) << c.commands;
    EXPECT_TRUE(tools.runs().empty()) << c.commands;
  }
}

}  // namespace
}  // namespace tidewell
