#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::Pixel;
using test::Raster;
using test::TemporaryFolder;

TEST(Views, ThumbnailsHaveTheRightSize) {
  const TemporaryFolder folder;
  const std::int64_t cases[][5] = {{400, 300, 51, 51, 38}, {300, 400, 50, 38, 50}, {400, 1, 64, 64, 1}};
  for (const auto& [width, height, maximum, expectedWidth, expectedHeight] : cases) {
    test::writePNGFile(folder / "a.png",
                       test::photoRaster(static_cast<int>(width), static_cast<int>(height)));
    const Bitmap view = views::thumbnail(*ImageSource::open(folder / "a.png"), 0, maximum, false);
    EXPECT_EQ(std::pair(view.width, view.height), std::pair(expectedWidth, expectedHeight));
  }
}

TEST(Views, ThumbnailsAverageWhatTheyCover) {
  const TemporaryFolder folder;
  // 5 × 2 pixels to 2 × 1: the middle column belongs to both halves.
  const Raster raster(5, 2, [](int x, int y) {
    const auto value = static_cast<std::uint8_t>(x < 2 ? 100 : x == 2 ? 50 : y * 200);
    return Pixel{value, value, value, static_cast<std::uint8_t>(x == 0 ? 0 : 255)};
  });
  test::writePNGFile(folder / "a.png", raster, {.alpha = true, .interlaced = false, .icc = {}, .gamma = {}});
  const Bitmap view = views::thumbnail(*ImageSource::open(folder / "a.png"), 0, 2, false);
  ASSERT_EQ(view.width, 2);
  ASSERT_EQ(view.height, 1);
  // Left: 0 (transparent), 100, and half of 50, over 2.5 columns; colours are premultiplied.
  EXPECT_EQ(view.pixels[0], 50);
  EXPECT_EQ(view.pixels[3], 153);
  // Right: half of 50, then two columns of 0 and 200.
  EXPECT_EQ(view.pixels[4], 90);
  EXPECT_EQ(view.pixels[7], 255);
}

TEST(Views, CropsAtFullResolution) {
  const TemporaryFolder folder;
  const Raster raster = test::photoRaster(60, 50);
  test::writePNGFile(folder / "a.png", raster);
  const auto source = ImageSource::open(folder / "a.png");
  const Bitmap view = views::crop(*source, 0, 11, 7, 20, 30);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 20; ++x) {
      ASSERT_EQ(std::memcmp(&raster.at(x + 11, y + 7), view.row(y).data() + x * 4, 4), 0) << x << "," << y;
    }
  }
  EXPECT_THROW(views::crop(*source, 0, 41, 0, 20, 20), ImageDecodeError);
}

TEST(Views, TurnsUpright) {
  // The stored picture "ab / cd / ef" as each orientation shows it.
  const char* expected[] = {"ab/cd/ef", "ba/dc/fe", "fe/dc/ba", "ef/cd/ab",
                            "ace/bdf",  "eca/fdb",  "fdb/eca",  "bdf/ace"};
  for (int orientation = 1; orientation <= 8; ++orientation) {
    Bitmap stored{.width = 2, .height = 3, .pixels = {}, .hasAlpha = false, .color = {}};
    for (const char letter : std::string("abcdef")) {
      stored.pixels.insert(stored.pixels.end(), {static_cast<std::uint8_t>(letter), 0, 0, 255});
    }
    const Bitmap shown = views::upright(stored, orientation);
    std::string text;
    for (std::int64_t y = 0; y < shown.height; ++y) {
      if (y > 0) text += '/';
      for (std::int64_t x = 0; x < shown.width; ++x)
        text += static_cast<char>(shown.row(y)[static_cast<std::size_t>(x) * 4]);
    }
    EXPECT_EQ(text, expected[orientation - 1]) << orientation;
  }
}

TEST(PNGWriter, RoundTripsPixelsAndColours) {
  const TemporaryFolder folder;
  const std::string p3 = color::makeRGBProfile("Display P3", color::displayP3);
  for (const bool alpha : {false, true}) {
    const Raster raster(33, 21, [&](int x, int y) {
      return Pixel{static_cast<std::uint8_t>(x * 7), static_cast<std::uint8_t>(y * 9), 77,
                   static_cast<std::uint8_t>(alpha ? (x * 31 + y) % 256 : 255)};
    });
    test::writePNGFile(folder / "a.png", raster,
                       {.alpha = alpha, .interlaced = false, .icc = p3, .gamma = {}});
    writePNG(views::thumbnail(*ImageSource::open(folder / "a.png"), 0, 100, false), folder / "b.png");
    EXPECT_EQ(test::decoded(folder / "b.png"), test::decoded(folder / "a.png"));
    const auto properties = ImageSource::open(folder / "b.png")->properties(0);
    EXPECT_EQ(properties.hasAlpha, alpha);
    EXPECT_EQ(properties.color.icc, p3);
  }
  test::writePNGFile(folder / "a.png", test::photoRaster(8, 8),
                     {.alpha = false, .interlaced = false, .icc = {}, .gamma = 1.0});
  writePNG(views::thumbnail(*ImageSource::open(folder / "a.png"), 0, 100, false), folder / "b.png");
  EXPECT_EQ(ImageSource::open(folder / "b.png")->properties(0).colorSpaceName, "RGB gamma 1");
  const std::string points("\x09\x10\0\x01", 4);
  folder.write("c.png", test::withChunk(files::read(folder / "a.png"), "cICP", points));
  writePNG(views::thumbnail(*ImageSource::open(folder / "c.png"), 0, 100, false), folder / "d.png");
  EXPECT_EQ(ImageSource::open(folder / "d.png")->properties(0).color.codePoints, points);
}

TEST(PNGWriter, WritesViewsOfPhotosWhoseProfileNoPNGMayCarry) {
  const TemporaryFolder folder;
  test::JPEGFileOptions options;
  options.icc = color::makeRGBProfile("Display P3", color::displayP3) + "x";  // longer than it says
  test::writeJPEGFile(folder / "a.jpg", test::photoRaster(8, 8), options);
  const Bitmap view = views::thumbnail(*ImageSource::open(folder / "a.jpg"), 0, 8, false);
  ASSERT_EQ(view.color.icc, options.icc);
  writePNG(view, folder / "a.png");
  EXPECT_EQ(test::decoded(folder / "a.png"), view.pixels);
  EXPECT_EQ(ImageSource::open(folder / "a.png")->properties(0).color.icc, "");
}

TEST(PNGWriter, LeavesNothingUnfinished) {
  const TemporaryFolder folder;
  const PNGWriter::Options options{
      .width = 4, .height = 4, .hasAlpha = false, .bitsPerSample = 8, .color = {}};
  { const PNGWriter writer(folder / "a.png", options); }
  EXPECT_FALSE(files::exists(folder / "a.png"));
  EXPECT_THROW(PNGWriter(folder / "no/a.png", options), FileError);
  // A file that may not grow any more, as on a full disk, is reported as what it is.
  const Raster large(300, 300, [](int x, int y) {
    return Pixel{static_cast<std::uint8_t>(x * x * y >> 3), static_cast<std::uint8_t>(y * y * x >> 5), 0,
                 255};
  });
  test::writePNGFile(folder / "source.png", large);
  const Bitmap view = views::thumbnail(*ImageSource::open(folder / "source.png"), 0, 300, false);
  const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
  rlimit previous{};
  getrlimit(RLIMIT_FSIZE, &previous);
  const rlimit small{.rlim_cur = 10'000, .rlim_max = previous.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  int code = 0;
  try {
    writePNG(view, folder / "large.png");
  } catch (const FileError& error) {
    code = error.code();
  }
  setrlimit(RLIMIT_FSIZE, &previous);
  std::signal(SIGXFSZ, ignored);
  EXPECT_EQ(code, EFBIG);
  EXPECT_FALSE(files::exists(folder / "large.png"));
}

}  // namespace
}  // namespace tidewell
