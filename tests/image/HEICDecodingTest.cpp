// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/HEICDecoding.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/HEICDecoder.h"
#include "CompressionKit/image/HEICAnswer.h"
#include "CompressionKit/platform/Confinement.h"
#include "CompressionKit/platform/Digest.h"
#include "support/Failure.h"
#include "support/Faults.h"
#include "support/HEICSample.h"
#include "support/Script.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::HEIFFile;
using enum CompressionError::Case;
using Purpose = HEICDecoding::Purpose;

ImageFacts factsOf(std::int64_t width, std::int64_t height, int orientation,
                   const std::optional<std::string>& profileName) {
  ImageFacts facts;
  facts.kind = ImageKind::heic;
  facts.width = width;
  facts.height = height;
  facts.frameCount = 1;
  facts.profileName = profileName;
  facts.orientation = orientation;
  return facts;
}

class HEICDecodingTest : public testing::Test {
 protected:
  HEICProgram standIn(const std::string& commands, double timeout = 60) const {
    return {test::writeScript(programs, "heic-decoder", commands), timeout};
  }
  /// As confined as the service runs it, where the sanitizers of our own program would work then.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const test::ScopedEnvironment variable{"TIDEWELL_CONFINE", "off"};
#else
  const test::ScopedEnvironment variable{"TIDEWELL_CONFINE", nullptr};
#endif
  const test::TemporaryFolder programs, folder;
  /// All that the service itself looks at.
  const URL photo = folder.write("photo.heic", test::box("ftyp", std::string("heic\0\0\0\0", 8)));
  const URL png = folder / "decoded.png";
};

TEST_F(HEICDecodingTest, AnswersWhatTheDecoderSays) {
  TIDEWELL_NEEDS_HEIF_ENCODER();
  const HEIFFile plain = test::encodeHEIC(test::slopes());
  const auto icc = [](const std::string& name) {
    return test::icc(color::makeRGBProfile(name, color::displayP3));
  };
  HEIFFile turned = plain, named = plain, two = plain;
  turned.with(test::irot(3));
  named.with(icc("Display P3\n潮 汐"));
  two.items.push_back(test::encodeHEIC(test::slopes(128, 64)).items.front());
  two.items.back().id = 2;
  two.primary = 2;
  for (const HEIFFile& file : {plain, turned, named, two, test::encodeHEIC(test::slopes(), true),
                               test::encodeHEIC(test::slopes(), false, 16, {"-b", "10"})}) {
    file.write(photo);
    HEICSource source(photo);
    const ImageProperties properties = source.properties(0);
    const auto name = properties.profileName ? properties.profileName : properties.colorSpaceName;
    ImageFacts expected = factsOf(properties.width, properties.height, *properties.orientation, name);
    expected.frameCount = static_cast<std::int64_t>(source.count());
    expected.hasAlpha = properties.hasAlpha;
    HEICDecoding decoding(photo, Purpose::convert);
    EXPECT_EQ(decoding.facts(), expected);
    EXPECT_EQ(ImageFacts::inspect(photo), expected);
    EXPECT_EQ(decoding.hash(), hash(photo));
    HEICDecoding shown(photo, Purpose::show);
    const bool isConvertible = source.count() == 1;
    EXPECT_EQ(test::caseOf([&] { decoding.png(); }).has_value(), !isConvertible);

    const URL direct = folder / "direct.png";
    source.writeUprightPNG(source.primaryIndex(), Descriptor(creat(direct.path().c_str(), 0600)));
    for (HEICDecoding* each : {&decoding, &shown}) {
      if (each == &decoding && !isConvertible) continue;
      each->savePNG(png);
      EXPECT_EQ(files::read(png), files::read(direct));
      EXPECT_FALSE(files::isOpenForWriting(png));
      files::removeItem(png);
    }
  }
}

TEST_F(HEICDecodingTest, BelievesOnlyWholeAnswersOfAProgramThatEndedWell) {
  const test::ScopedEnvironment off("TIDEWELL_CONFINE", "off");
  const std::string good = "echo '1 96 64 6 0 0 Display P3' >&3";
  EXPECT_EQ(HEICDecoding(photo, Purpose::convert, {}, standIn(good)).facts().orientation, 6);
  const struct {
    const char* what;
    std::string commands;
    double timeout = 60;
  } cases[] = {{"fails", good + "; exit 1"},
               {"crashes", good + "; kill -SEGV $$"},
               {"says nothing", ":"},
               {"says nonsense", "echo nonsense >&3"},
               {"never ends its answer", "yes 1 >&3; exit 0"},
               {"goes on after its answer", "yes '1 96 64 6 0 0' >&3; exit 0"},
               {"hangs", good + "; exec sleep 1000", 0.2},
               {"leaves somebody who hangs", "sleep 1000 & kill -KILL $$"}};
  for (const auto& c : cases) {
    const HEICProgram program = standIn(c.commands, c.timeout);
    for (const Purpose purpose : {Purpose::inspect, Purpose::convert, Purpose::show}) {
      EXPECT_EQ(test::caseOf([&] { HEICDecoding(photo, purpose, {}, program); }), invalidImage) << c.what;
    }
  }
  EXPECT_EQ(files::namesInDirectory(folder.url()).size(), 1U);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
}

/// Another file comes under the name at any moment.
TEST_F(HEICDecodingTest, HashesTheFileThatItDecodes) {
  const test::ScopedEnvironment off("TIDEWELL_CONFINE", "off");
  const HEICProgram copier = standIn("echo '1 96 64 1 0 1' >&3; cat >&4");
  const std::string first = files::read(photo);
  int point = 1;
  for (bool happened = true; happened; ++point) {
    files::writeAtomically(photo, first);
    test::Faults faults;
    faults.at(point, [&] { files::writeAtomically(photo, first + "another"); });
    HEICDecoding decoding(photo, Purpose::convert, {}, copier);
    happened = faults.happened();
    decoding.savePNG(png);
    EXPECT_EQ(decoding.hash(), hash(png)) << point << " " << faults.where();
    files::removeItem(png);
  }
  EXPECT_GT(point, 3);
}

/// A script needs its interpreter, which is none of the files that a confined decoder may start with.
TEST_F(HEICDecodingTest, ConfinesTheDecoder) {
  if (Confinement::available().landlockABI == 0) GTEST_SKIP() << "no Landlock";
  EXPECT_THROW(HEICDecoding(photo, Purpose::inspect, {}, standIn("exit 0")), FileError);
}

TEST_F(HEICDecodingTest, EndsWhenAskedToStop) {
  const test::ScopedEnvironment off("TIDEWELL_CONFINE", "off");
  const test::Signpost ready(programs / "ready");
  const HEICProgram program = standIn("trap '' TERM; echo > " + ready.path() + "; while :; do :; done");
  StopSource stop;
  std::chrono::steady_clock::time_point asked;
  std::thread stopper([&] {
    ready.wait();
    asked = std::chrono::steady_clock::now();
    stop.requestStop();
  });
  EXPECT_THROW(HEICDecoding(photo, Purpose::convert, stop.token(), program), Interrupted);
  stopper.join();
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(1));
  EXPECT_THROW(HEICDecoding(photo, Purpose::convert, stop.token()), Interrupted);
}

TEST_F(HEICDecodingTest, LooksAtTheContainerFirst) {
  const HEICProgram missing{programs / "missing", 60};
  const auto failure = [&](const URL& url) {
    return test::textOf([&] { HEICDecoding(url, Purpose::convert, {}, missing); });
  };
  test::writePNGFile(folder / "png.heic", test::photoRaster(8, 8));
  EXPECT_EQ(failure(photo), "缺少压缩组件：missing");
  EXPECT_EQ(failure(folder / "png.heic"), "文件格式与扩展名不一致");
  EXPECT_EQ(failure(folder.write("avif.heic", test::box("ftyp", std::string("avif\0\0\0\0", 8)))),
            "文件格式与扩展名不一致");
  EXPECT_EQ(failure(folder.write("text.heic", "no image")), "图片无法解码");
  EXPECT_EQ(failure(folder / "nowhere.heic"), "图片无法解码");
}

/// Where the folder takes no file, temporary files and memory do. From memory the PNG is copied.
TEST_F(HEICDecodingTest, HandsOverFromWhereverThereIsRoom) {
  TIDEWELL_NEEDS_HEIF_ENCODER();
  test::encodeHEIC(test::slopes()).write(photo);
  HEICDecoding(photo, Purpose::convert).savePNG(png);
  const Descriptor file = files::openForReading(photo);
  const URL inNoFolder = URL::file("/proc/self/fd/" + std::to_string(file.get()));
  for (const std::string& temporary : {programs.url().path(), std::string("/nowhere")}) {
    const test::ScopedEnvironment place("TMPDIR", temporary.c_str());
    HEICDecoding decoding(inNoFolder, Purpose::convert);
    decoding.savePNG(folder / "other.png");
    EXPECT_EQ(files::read(folder / "other.png"), files::read(png));
    EXPECT_THROW(decoding.png(), CompressionError);
    files::removeItem(folder / "other.png");
  }
}

TEST(HEICAnswer, TakesOnlyWhatItWrites) {
  HEICAnswer answer;
  answer.facts = factsOf(4032, 3024, 6, std::nullopt);
  for (const std::optional<std::string>& name :
       {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>(" 7 潮\n"),
        std::optional<std::string>("Display P3")}) {
    answer.facts.profileName = name;
    answer.hasPNG = !answer.hasPNG;
    const auto parsed = HEICAnswer::parse(answer.text() + std::string(100, '\0'));
    ASSERT_TRUE(parsed) << answer.text();
    EXPECT_EQ(parsed->facts, answer.facts);
    EXPECT_EQ(parsed->hasPNG, answer.hasPNG);
  }
  answer.facts.profileName = std::string(100'000, '\xFF');
  ASSERT_TRUE(HEICAnswer::parse(answer.text()));
  EXPECT_LE(answer.text().size(), HEICAnswer::maximumBytes);
  for (const char* text :
       {"", "\n", "1 2 3 1 0 0", "1 2 3 1 0\n", "1 2 3 1 0 0x\n", "1 2 3 1 0 x\n", "1  2 3 1 0 0\n",
        " 1 2 3 1 0 0\n", "0 2 3 1 0 0\n", "-1 2 3 1 0 0\n", "1 0 3 1 0 0\n", "1 2 2147483648 1 0 0\n",
        "1 99999999999999999999 3 1 0 0\n", "1 2 3 0 0 0\n", "1 2 3 9 0 0\n", "1 2 3 1 2 0\n",
        "1 2 3 1 0 2\n", "1.5 2 3 1 0 0\n", "+1 2 3 1 0 0\n"}) {
    EXPECT_FALSE(HEICAnswer::parse(text)) << text;
  }
}

}  // namespace
}  // namespace tidewell
