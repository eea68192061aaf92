// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/Faults.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::Pixel;
using test::Raster;

class Views : public testing::Test {
 protected:
  std::unique_ptr<ImageSource> source(const Raster& raster, const test::PNGOptions& options = {}) const {
    test::writePNGFile(png, raster, options);
    return ImageSource::open(png);
  }
  /// The PNG that is made of a view of the whole image, and what it says of itself.
  ImageProperties rewritten(const URL& image) const {
    writePNG(views::thumbnail(*ImageSource::open(image), 0, 100, false), view);
    return ImageSource::open(view)->properties(0);
  }

  const test::TemporaryFolder folder;
  const URL png = folder / "a.png", view = folder / "view.png";
  const std::string p3 = color::makeRGBProfile("Display P3", color::displayP3);
};

TEST_F(Views, ThumbnailsHaveTheRightSize) {
  const int cases[][5] = {{400, 300, 51, 51, 38}, {300, 400, 50, 38, 50}, {400, 1, 64, 64, 1}};
  for (const auto& [width, height, maximum, expectedWidth, expectedHeight] : cases) {
    const Bitmap reduced = views::thumbnail(*source(test::photoRaster(width, height)), 0, maximum, false);
    EXPECT_EQ(reduced.width, expectedWidth);
    EXPECT_EQ(reduced.height, expectedHeight);
  }
}

TEST_F(Views, ThumbnailsAverageWhatTheyCover) {
  // 5 × 2 pixels to 2 × 1: the middle column belongs to both halves.
  const Raster raster(5, 2, [](int x, int y) {
    const auto value = static_cast<std::uint8_t>(x < 2 ? 100 : x == 2 ? 50 : y * 200);
    return Pixel{value, value, value, static_cast<std::uint8_t>(x == 0 ? 0 : 255)};
  });
  const Bitmap reduced = views::thumbnail(*source(raster, {.alpha = true}), 0, 2, false);
  // Left: 0 (transparent), 100, and half of 50, over 2.5 columns; colours are premultiplied. Right: half of
  // 50, then two columns of 0 and 200.
  EXPECT_EQ(reduced.pixels, (std::vector<std::uint8_t>{50, 50, 50, 153, 90, 90, 90, 255}));
}

TEST_F(Views, CropsAtFullResolution) {
  const Raster raster = test::photoRaster(60, 50);
  const auto image = source(raster);
  const Bitmap part = views::crop(*image, 0, 11, 7, 20, 30);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 20; ++x) {
      ASSERT_EQ(std::memcmp(&raster.at(x + 11, y + 7), &part.row(y)[static_cast<std::size_t>(x) * 4], 4), 0)
          << x << "," << y;
    }
  }
  EXPECT_THROW(views::crop(*image, 0, 41, 0, 20, 20), ImageDecodeError);
}

TEST_F(Views, OverviewAndDetailAreThoseOfAFreshSource) {
  const auto check = [&](const URL& image, const std::string& name) {
    SCOPED_TRACE(name);
    const auto properties = ImageSource::open(image)->properties(0);
    for (const std::int64_t overviewSide : {40, 130, 1000}) {
      const std::int64_t side = std::min({properties.width, properties.height, std::int64_t{48}});
      const Bitmap overview = views::thumbnail(*ImageSource::open(image), 0, overviewSide, false);
      const Bitmap detail = views::crop(*ImageSource::open(image), 0, (properties.width - side) / 2,
                                        (properties.height - side) / 2, side, side);
      const auto source = ImageSource::open(image);
      for (int time = 0; time < 2; ++time) {
        const views::Pair pair = views::overviewAndDetail(*source, 0, overviewSide, 48);
        EXPECT_EQ(pair.overview.pixels, overview.pixels);
        EXPECT_EQ(pair.detail.pixels, detail.pixels);
        EXPECT_EQ(views::thumbnail(*source, 0, overviewSide, false).pixels, overview.pixels);
      }
    }
    // What lacks its end is refused, also by a source that has delivered all rows before.
    const std::string data = files::read(image);
    const URL cut = folder.write("cut", data.substr(0, data.size() - 2));
    EXPECT_THROW(views::overviewAndDetail(*ImageSource::open(cut), 0, 40, 48), ImageDecodeError);
    EXPECT_THROW(views::overviewAndDetail(*ImageSource::open(cut), 0, 1000, 48), ImageDecodeError);
  };
  const URL jpeg = folder / "a.jpg";
  using test::JPEGColors;
  for (const auto& [width, height] : {std::pair{331, 217}, {97, 300}, {400, 30}, {1, 1}}) {
    const Raster raster = test::photoRaster(width, height);
    for (const bool progressive : {false, true}) {
      for (const auto& [across, down, colors] : {std::tuple{2, 2, JPEGColors::rgb},
                                                 {1, 1, JPEGColors::rgb},
                                                 {2, 1, JPEGColors::rgb},
                                                 {1, 4, JPEGColors::rgb},
                                                 {1, 1, JPEGColors::grey},
                                                 {1, 1, JPEGColors::inks}}) {
        test::writeJPEGFile(jpeg, raster,
                            {.across = across, .down = down, .progressive = progressive, .colors = colors});
        check(jpeg, std::to_string(width) + (progressive ? " progressive " : " ") +
                        std::to_string(across * 10 + down));
      }
    }
    for (const bool alpha : {false, true}) {
      test::writePNGFile(png, raster, {.alpha = alpha});
      check(png, "png");
    }
  }
}

TEST_F(Views, TurnsUpright) {
  // The stored picture "ab / cd / ef" as each orientation shows it.
  const char* expected[] = {"ab/cd/ef/", "ba/dc/fe/", "fe/dc/ba/", "ef/cd/ab/",
                            "ace/bdf/",  "eca/fdb/",  "fdb/eca/",  "bdf/ace/"};
  for (int orientation = 1; orientation <= 8; ++orientation) {
    Bitmap shown{.width = 2, .height = 3, .pixels = {}, .hasAlpha = false, .color = {}};
    for (const std::uint8_t letter : {'a', 'b', 'c', 'd', 'e', 'f'})
      shown.pixels.insert(shown.pixels.end(), {letter, 0, 0, 255});
    shown = views::upright(shown, orientation);
    std::string text;
    for (std::size_t i = 0; i < 6; ++i) {
      text += static_cast<char>(shown.pixels[i * 4]);
      if ((i + 1) % static_cast<std::size_t>(shown.width) == 0) text += '/';
    }
    EXPECT_EQ(text, expected[orientation - 1]) << orientation;
  }
}

TEST_F(Views, RoundTripPixelsAndColoursThroughPNG) {
  for (const bool alpha : {false, true}) {
    const Raster raster(33, 21, [&](int x, int y) {
      return Pixel{static_cast<std::uint8_t>(x * 7), static_cast<std::uint8_t>(y * 9), 77,
                   static_cast<std::uint8_t>(alpha ? (x * 31 + y) % 256 : 255)};
    });
    test::writePNGFile(png, raster, {.alpha = alpha, .icc = p3});
    const auto properties = rewritten(png);
    EXPECT_EQ(test::decoded(view), test::decoded(png));
    EXPECT_EQ(properties.hasAlpha, alpha);
    EXPECT_EQ(properties.color.icc, p3);
  }
  test::writePNGFile(png, test::photoRaster(8, 8), {.gamma = 1.0});
  EXPECT_EQ(rewritten(png).colorSpaceName, "RGB gamma 1");
  const std::string points("\x09\x10\0\x01", 4);
  const URL coded = folder.write("b.png", test::withChunk(files::read(png), "cICP", points));
  EXPECT_EQ(rewritten(coded).color.codePoints, points);

  // A photo whose profile no PNG may carry: it is longer than it says.
  const URL jpeg = folder / "a.jpg";
  test::writeJPEGFile(jpeg, test::photoRaster(8, 8), {.icc = p3 + "x"});
  EXPECT_EQ(ImageSource::open(jpeg)->properties(0).color.icc, p3 + "x");
  EXPECT_EQ(rewritten(jpeg).color.icc, "");
  EXPECT_EQ(test::decoded(view), test::decoded(jpeg));
}

TEST(PNGWriter, LeavesNothingUnfinished) {
  const test::TemporaryFolder folder;
  const PNGWriter::Options options{.width = 4, .height = 4, .color = {}};
  { const PNGWriter writer(folder / "a.png", options); }
  EXPECT_FALSE(files::exists(folder / "a.png"));
  EXPECT_THROW(PNGWriter(folder / "no/a.png", options), FileError);
  // Over a longer file, as over none.
  folder.write("used.png", std::string(5000, 'x'));
  for (const char* name : {"new.png", "used.png"}) {
    writePNG({.width = 4, .height = 4, .pixels = std::vector<std::uint8_t>(64, 255), .color = {}},
             folder / name);
  }
  EXPECT_EQ(files::read(folder / "used.png"), files::read(folder / "new.png"));
  // A full disk is reported as what it is.
  const std::vector<std::uint8_t> black(360'000);
  const Bitmap large{.width = 300, .height = 300, .pixels = black, .hasAlpha = true, .color = {}};
  const Bitmap small{.width = 4, .height = 4, .pixels = std::vector<std::uint8_t>(64), .color = {}};
  for (const auto& [bitmap, calls] : {std::pair(&small, 3), {&large, 8}}) {  // to open, write and close
    for (int call = 1; call <= calls + 1; ++call) {
      test::Faults faults;
      faults.fail(call, ENOSPC);
      const int code = test::errnoOf([&, image = bitmap] { writePNG(*image, folder / "full.png"); });
      EXPECT_EQ(code, call > calls ? 0 : ENOSPC) << call;
      EXPECT_EQ(files::exists(folder / "full.png"), call > calls) << call;
      files::removeItemIfPossible(folder / "full.png");
    }
  }
}

}  // namespace
}  // namespace tidewell
