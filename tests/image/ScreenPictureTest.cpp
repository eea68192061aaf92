// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ScreenPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/image/GIFFrames.h"
#include "CompressionKit/image/ImageRendering.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/HEICSample.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::caseOf;
using test::textOf;

class ScreenPictureTest : public testing::Test {
 protected:
  /// Where the parts' files go.
  static void useTemporaryDirectory(const std::string& path) { setenv("TMPDIR", path.c_str(), 1); }
  void SetUp() override { useTemporaryDirectory(folder.url().path()); }
  void TearDown() override { unsetenv("TMPDIR"); }

  const test::TemporaryFolder folder;
};

/// What the part should be, of the whole picture as it is shown elsewhere.
std::vector<std::uint8_t> averaged(const Bitmap& whole, const Rectangle& part, std::int64_t reduction) {
  std::vector<std::uint8_t> result;
  for (std::int64_t top = part.y; top < part.y + part.height; top += reduction) {
    for (std::int64_t left = part.x; left < part.x + part.width; left += reduction) {
      for (std::size_t c = 0; c < 4; ++c) {
        std::int64_t sum = 0, count = 0;
        for (std::int64_t y = top; y < std::min(top + reduction, part.y + part.height); ++y) {
          for (std::int64_t x = left; x < std::min(left + reduction, part.x + part.width); ++x, ++count)
            sum += whole.row(y)[static_cast<std::size_t>(x) * 4 + c];
        }
        result.push_back(static_cast<std::uint8_t>((sum + count / 2) / count));
      }
    }
  }
  return result;
}

TEST_F(ScreenPictureTest, ShowsPartsOfTheUprightPicture) {
  const URL file = folder / "picture";
  const test::Raster photo = test::photoRaster(83, 61);
  const test::Raster seeThrough(83, 61, [&](int x, int y) {
    return test::Pixel{photo.at(x, y)[0], 90, 200, static_cast<std::uint8_t>(x * 3)};
  });
  const auto check = [&](const std::string& what) {
    const Bitmap whole = ImageRendering::comparisonImage(file);
    ScreenPicture picture(file, 20, {});
    ASSERT_EQ(std::pair(picture.width(), picture.height()), std::pair(whole.width, whole.height)) << what;
    EXPECT_EQ(std::max(picture.reduced().width, picture.reduced().height), 20) << what;
    ASSERT_TRUE(picture.prepareParts()) << what;
    const std::int64_t right = whole.width - 17, bottom = whole.height - 23;
    for (const Rectangle& part : {Rectangle{0, 0, whole.width, whole.height},
                                  Rectangle{right, bottom, 17, 23}, Rectangle{5, 9, 1, 30}}) {
      for (const std::int64_t reduction : {1, 2, 8}) {
        const Bitmap found = picture.part(part, reduction);
        EXPECT_EQ(found.pixels, averaged(whole, part, reduction)) << what << " / " << reduction;
        EXPECT_EQ(found.hasAlpha, whole.hasAlpha) << what;
      }
    }
  };
  for (int orientation = 1; orientation <= 8; ++orientation) {
    test::writeJPEGFile(
        file, photo, {.progressive = orientation % 2 == 0, .exif = test::exifWithOrientation(orientation)});
    check("orientation " + std::to_string(orientation));
  }
  for (const bool interlaced : {false, true}) {
    test::writePNGFile(file, seeThrough, {.alpha = true, .interlaced = interlaced});
    check("see-through");
  }
}

TEST_F(ScreenPictureTest, ShowsHEICFiles) {
  TIDEWELL_NEEDS_HEIF_ENCODER();
  test::encodeHEIC(test::slopes(128, 64)).write(folder / "picture.heic");
  const Bitmap whole = ImageRendering::comparisonImage(folder / "picture.heic");
  ScreenPicture picture(folder / "picture.heic", 50, {});
  ASSERT_TRUE(picture.prepareParts());
  const Bitmap part = picture.part({.x = 100, .y = 3, .width = 20, .height = 30});
  EXPECT_NEAR(part.pixels[0], whole.row(3)[400], 3);
  EXPECT_EQ(part.height, 30);
}

/// The same colour, told in several ways.
TEST_F(ScreenPictureTest, ConvertsColoursForTheScreen) {
  const URL file = folder / "picture.png";
  struct Case {
    test::Pixel stored;
    test::PNGOptions options;
    test::Pixel shown;  ///< premultiplied
  };
  const std::string p3 = color::makeRGBProfile("P3", color::displayP3);
  const Case cases[] = {
      {.stored = {117, 201, 120, 255}, .options = {}, .shown = {117, 201, 120, 255}},
      // sRGB green and a grey in the numbers of Display P3.
      {.stored = {117, 251, 76, 255}, .options = {.icc = p3}, .shown = {0, 255, 0, 255}},
      {.stored = {119, 119, 119, 255}, .options = {.icc = p3}, .shown = {119, 119, 119, 255}},
      {.stored = {117, 251, 76, 128}, .options = {.alpha = true, .icc = p3}, .shown = {0, 128, 0, 128}},
      {.stored = {9, 9, 9, 0}, .options = {.alpha = true, .icc = p3}, .shown = {0, 0, 0, 0}},
      // Linear light.
      {.stored = {55, 255, 0, 255}, .options = {.gamma = 1.0}, .shown = {128, 255, 0, 255}},
  };
  for (const Case& one : cases) {
    test::writePNGFile(file, test::Raster(3, 2, [&](int, int) { return one.stored; }), one.options);
    ScreenPicture picture(file, 100, {});
    ASSERT_TRUE(picture.prepareParts());
    for (const Bitmap& shown : {picture.reduced(), picture.part({.x = 1, .y = 1, .width = 1, .height = 1})}) {
      EXPECT_TRUE(shown.color.srgb);
      // In 8 bits, and less of them under transparency, dark colours at the edge of the gamut are coarse.
      const int tolerance = one.stored[3] < 255 ? 9 : 4;
      for (std::size_t c = 0; c < 4; ++c) {
        EXPECT_NEAR(shown.pixels[c], one.shown[c], tolerance) << int{one.stored[0]} << " channel " << c;
      }
    }
  }
}

TEST_F(ScreenPictureTest, ShowsOnlyFilesThatAreWhatTheyWere) {
  const URL png = folder / "picture.png", other = folder / "other.png";
  test::writePNGFile(png, test::photoRaster(30, 20));
  test::writePNGFile(other, test::photoRaster(30, 20, 2));
  const std::optional<std::string> before = hash(png), after = hash(other);
  const auto open = [&](const std::optional<std::string>& hash, const StopToken& stop = {}) {
    return ImageRendering::screenPictures(png, other, before, hash, 10, stop);
  };
  EXPECT_EQ(textOf([&] { open(before); }), "图片文件已被修改，无法对比");
  StopSource stop;
  stop.requestStop();
  EXPECT_THROW(open(after, stop.token()), Interrupted);

  useTemporaryDirectory(folder.url().path() + "/none");
  const auto pictures = open(after);
  EXPECT_FALSE(ImageRendering::prepareParts(pictures)) << "no place for the parts";
  useTemporaryDirectory(folder.url().path());
  EXPECT_TRUE(ImageRendering::prepareParts(pictures));
  EXPECT_EQ(pictures->compressed->part({.width = 30, .height = 20}).pixels, test::decoded(other));

  const auto late = open(after);
  folder.write("other.png", files::read(png));
  EXPECT_EQ(textOf([&] { ImageRendering::prepareParts(late); }),
            "图片文件在载入过程中被修改，请重新打开对比");
  EXPECT_EQ(files::namesInDirectory(folder.url()).size(), 2U) << "the parts' files have no names";
}

TEST_F(ScreenPictureTest, ComposesFramesOneAtATime) {
  const URL gif = folder / "moving.gif";
  test::writeGIFFile(
      gif, {.width = 6,
            .height = 5,
            .frames = {{.width = 6, .height = 5, .indexes = {0}, .delay = 7},
                       {.left = 1, .top = 2, .width = 2, .height = 2, .indexes = {1}, .disposal = 2},
                       {.left = 3, .width = 3, .height = 1, .indexes = {2}, .delay = 0}}});
  ScreenAnimation animation(gif, 100, {});
  EXPECT_EQ(animation.delays(), (std::vector<double>{0.07, 0.1, 0.1}));
  for (const std::size_t index : {0U, 1U, 2U, 0U, 2U, 1U}) {
    EXPECT_EQ(animation.frame(index).pixels, test::decoded(gif, index)) << index;
  }
  EXPECT_EQ(ScreenAnimation(gif, 3, {}).frame(1).width, 3);
  const std::string data = files::read(gif);
  folder.write("moving.gif", data + "more");
  EXPECT_EQ(textOf([&] { animation.frame(2); }), "图片文件在载入过程中被修改，请重新打开对比");
}

}  // namespace
}  // namespace tidewell
