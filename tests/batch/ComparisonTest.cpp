// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/Comparison.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/platform/Digest.h"
#include "engine/FakeTools.h"
#include "support/Failure.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

class ComparisonTest : public testing::Test {
 protected:
  static test::Raster touched(int by) {
    auto raster = test::photoRaster(320, 160);
    for (auto& pixel : raster.pixels) pixel[0] = 100;
    for (int y = 100; y < 110; ++y) {
      for (int x = 200; x < 220; ++x) {
        raster.pixels[static_cast<std::size_t>(y * 320 + x)][0] = static_cast<std::uint8_t>(100 + by);
      }
    }
    return raster;
  }
  Comparison compared(const URL& original, const URL& result) {
    return compare({.original = original, .result = result}, tools_);
  }

  test::TemporaryFolder folder_;
  test::FakeTools scripts_;
  ToolRunner tools_{scripts_.directory()};
};

TEST_F(ComparisonTest, FindsAndPaintsTheWorstRegion) {
  const URL original = folder_ / "a.png", result = folder_ / "b.png", picture = folder_ / "picture.png";
  test::writePNGFile(original, touched(0));
  test::writePNGFile(result, touched(40));
  scripts_.score("b.png", 71.25);
  const auto found =
      compare({.original = original, .result = result, .originalHash = hash(original)}, tools_, picture);
  EXPECT_EQ(found.score, 71.25);
  ASSERT_TRUE(found.worst);
  const auto& [x, y, width, height, difference] = *found.worst;
  EXPECT_EQ(std::tuple(x, y, width, height, difference), std::tuple(200, 100, 20, 10, 40.0));
  EXPECT_EQ(found.original.bytes, fileSize(original));
  EXPECT_FALSE(compared(original, original).worst);

  EXPECT_EQ(found.amplification, 6);
  const auto pixels = test::decoded(picture);
  ASSERT_EQ(pixels.size(), (3 * 320 + 16) * 160 * 4U);
  const auto red = [&](std::size_t panel, std::size_t column) {
    return int{pixels[(105 * (3 * 320 + 16) + panel * 328 + column) * 4]};
  };
  EXPECT_EQ(std::tuple(red(0, 205), red(1, 205), red(2, 205), red(2, 20)), std::tuple(100, 140, 240, 0));
  EXPECT_EQ(test::errnoOf([&] { compare({.original = original, .result = result}, tools_, picture); }),
            EEXIST);
  EXPECT_EQ(test::decoded(picture), pixels);
}

TEST_F(ComparisonTest, ComparesColoursOfOtherProfilesInSRGB) {
  const URL p3 = folder_ / "p3.png", red = folder_ / "red.png", green = folder_ / "green.png";
  const auto flat = [](test::Pixel pixel) { return test::Raster(64, 64, [=](int, int) { return pixel; }); };
  const std::string profile = color::makeRGBProfile("Wide", color::displayP3);
  test::writePNGFile(p3, flat({200, 100, 50, 255}), {.icc = profile});
  test::writePNGFile(red, flat({216, 96, 34, 255}), {.icc = color::makeRGBProfile("Usual", color::bt709)});
  test::writePNGFile(green, flat({200, 100, 50, 255}), {.icc = color::makeRGBProfile("Usual", color::bt709)});
  EXPECT_LE(compared(p3, red).worst.value_or(Comparison::Region()).difference, 3) << "one colour";
  ASSERT_TRUE(compared(p3, green).worst) << "the same numbers";
  EXPECT_GT(compared(p3, green).worst->difference, 12);
}

TEST_F(ComparisonTest, TellsSizesUprightAndScoresWhatCanBeScored) {
  const auto write = [&](const char* name, int width, int height, const std::string& exif = {}) {
    test::writeJPEGFile(folder_ / name, test::photoRaster(width, height), {.exif = exif});
    return folder_ / name;
  };
  const URL turned = write("turned.jpg", 60, 40, test::exifWithOrientation(6)),
            upright = write("upright.jpg", 40, 60), larger = write("larger.jpg", 80, 60);
  test::GIFFile gif{.frames = {{.indexes = {0}}, {.indexes = {1}}}};
  test::writeGIFFile(folder_ / "two.gif", gif);
  gif.frames.pop_back();
  test::writeGIFFile(folder_ / "one.gif", gif);
  scripts_.score("view-2.png", 50.5);
  scripts_.score("frame-1.png", 12.5);

  const auto same = compared(turned, upright);
  EXPECT_EQ(std::pair(same.original.width, same.original.height),
            std::pair(std::int64_t{40}, std::int64_t{60}));
  EXPECT_EQ(same.score, 50.5) << "of the upright views";
  EXPECT_EQ(compared(upright, larger).score, std::nullopt);
  EXPECT_EQ(compared(folder_ / "two.gif", folder_ / "two.gif").score, 12.5)
      << "of the worst frame, however bad";
  EXPECT_EQ(compared(folder_ / "two.gif", folder_ / "one.gif").score, std::nullopt);
  EXPECT_EQ(compared(folder_ / "two.gif", folder_ / "one.gif").original.frames, 2);
}

TEST_F(ComparisonTest, ComparesProvenFilesOnly) {
  const UndoStore store(folder_ / "Undo");
  const URL photo = folder_ / "a.png", result = folder_ / "b.png";
  test::writePNGFile(photo, touched(0));
  test::writePNGFile(result, touched(1));
  const auto record = store.prepare(photo, result, UUID::random(), std::nullopt);
  const auto compareAgain = [&] { compare(ComparedFiles::of(store, record), tools_); };
  EXPECT_EQ(test::caseOf(compareAgain), CompressionError::Case::fileOperation) << "the original stands there";
  test::writePNGFile(photo, touched(1));
  EXPECT_EQ(test::caseOf(compareAgain), std::nullopt);
  store.removeBackup(record);
  EXPECT_EQ(test::caseOf(compareAgain), CompressionError::Case::fileOperation);
}

}  // namespace
}  // namespace tidewell
