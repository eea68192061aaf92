// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <algorithm>
#include <span>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/platform/Files.h"
#include "support/Decoding.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::decoded;
using test::JPEGColors;
using test::JPEGFileOptions;
using test::propertiesOf;

class JPEGDecoder : public testing::Test {
 protected:
  /// A photo; its bytes.
  std::string write(const JPEGFileOptions& options, int width = 16, int height = 16) const {
    test::writeJPEGFile(jpeg, test::photoRaster(width, height), options);
    return files::read(jpeg);
  }

  const test::TemporaryFolder folder;
  const URL jpeg = folder / "a.jpg";
  const std::string p3 = color::makeRGBProfile("Display P3", color::displayP3);
};

TEST_F(JPEGDecoder, SkippedRowsAgreeWithPlainOnes) {
  constexpr std::size_t bytes = 65 * 4;
  for (const auto& [across, down] : {std::pair{1, 1}, {2, 1}, {1, 2}, {2, 2}, {4, 1}, {4, 2}, {1, 4}}) {
    for (const bool progressive : {false, true}) {
      SCOPED_TRACE(testing::Message() << across << "x" << down << ", progressive " << progressive);
      write({.across = across, .down = down, .progressive = progressive}, 65, 90);
      const auto whole = decoded(jpeg);
      const auto source = ImageSource::open(jpeg);
      source->verify(0);
      std::vector<std::uint8_t> row(bytes);
      for (std::int64_t first = 1; first < 80; ++first) {
        const auto rows = source->rows(0);
        std::size_t y = 0;
        // A skip, some rows, and a second skip from within a group of rows.
        for (const auto& [skipped, read] : {std::pair{first, 3}, {5, 1}}) {
          rows->skip(skipped);
          y += static_cast<std::size_t>(skipped);
          for (int i = 0; i < read; ++i, ++y) {
            rows->read(row);
            EXPECT_TRUE(std::ranges::equal(row, std::span(whole).subspan(y * bytes, bytes))) << first;
          }
        }
      }
    }
  }
}

TEST_F(JPEGDecoder, ReducesAsFarAsAsked) {
  for (const int shared : {1, 2}) {
    write({.across = shared, .down = shared}, 331, 217);
    const auto source = ImageSource::open(jpeg);
    for (const auto& [atLeast, width] : {std::pair{0, 331}, {331, 331}, {330, 331}, {100, 166}, {1, 42}})
      EXPECT_EQ(source->rows(0, atLeast)->width(), width) << atLeast;
  }
}

TEST_F(JPEGDecoder, ConvertsOtherColours) {
  const struct {
    JPEGColors colors;
    test::Pixel stored, expected;
    const char* space;
  } cases[] = {{JPEGColors::grey, {90, 0, 0, 0}, {90, 90, 90, 255}, "sRGB IEC61966-2.1"},
               // Adobe's inks are stored inverted: 255 is no ink.
               {JPEGColors::inks, {255, 128, 0, 255}, {255, 128, 0, 255}, "Generic CMYK"},
               {JPEGColors::inks, {255, 255, 255, 100}, {100, 100, 100, 255}, "Generic CMYK"}};
  for (const auto& c : cases) {
    const test::Raster raster(16, 16, [&](int, int) { return c.stored; });
    test::writeJPEGFile(jpeg, raster, {.quality = 100, .colors = c.colors});
    const auto pixels = decoded(jpeg);
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(pixels[i], c.expected[i], 2) << c.space << i;
    EXPECT_EQ(propertiesOf(jpeg).colorSpaceName, c.space);
  }
  write({.colors = JPEGColors::pair});
  EXPECT_THROW(ImageSource::open(jpeg), ImageDecodeError);
}

TEST_F(JPEGDecoder, ReadsOrientationAndProfile) {
  const struct {
    std::string exif;
    std::optional<int> expected;
  } cases[] = {{"", {}},
               {test::exifWithOrientation(6), 6},
               {test::exifWithOrientation(8, true), 8},
               {test::exifWithOrientation(0), {}},
               {test::exifWithOrientation(9), {}},
               {test::exifWithOrientation(6).substr(0, 20), {}},
               {"Exif", {}}};
  for (const auto& c : cases) {
    const std::string plain = write({.exif = c.exif, .icc = p3});
    // Decoders pass over stray bytes between segments, so they must not hide what stands behind them.
    std::string stray = plain;
    stray.insert(c.exif.empty() ? 20 : stray.find("\xFF\xE1"), 3, '\x11');
    for (const std::string& data : {plain, stray}) {
      const auto properties = propertiesOf(folder.write("b.jpg", data));
      EXPECT_EQ(properties.orientation, c.expected);
      EXPECT_EQ(properties.profileName, "Display P3");
      EXPECT_EQ(properties.color.icc, p3);
    }
  }
}

TEST_F(JPEGDecoder, KnowsHowCamerasMarkAdobeRGB) {
  /// Three directories of one or two entries each: the first, the camera's, that of interoperability.
  const auto exif = [](const std::string& space, const std::string& index) {
    const std::string one("\1\0\0\0", 4);
    return std::string("Exif\0\0II*\0\x08\0\0\0", 14) + std::string("\1\0\x69\x87\4\0", 6) + one +
           std::string("\x1A\0\0\0\0\0\0\0", 8) + std::string("\2\0\1\xA0\3\0", 6) + one + space +
           std::string("\0\0\5\xA0\4\0", 6) + one + std::string("\x38\0\0\0\0\0\0\0", 8) +
           std::string("\1\0\1\0\2\0\4\0\0\0", 10) + index + std::string(5, '\0');
  };
  const struct {
    std::string exif, icc, name;
  } cases[] = {{exif("\xFF\xFF", "R03"), "", "Adobe RGB (1998)"},
               {exif(std::string("\2\0", 2), "R98"), "", "Adobe RGB (1998)"},
               {exif("\xFF\xFF", "R98"), "", "sRGB IEC61966-2.1"},
               {exif(std::string("\1\0", 2), "R03"), "", "sRGB IEC61966-2.1"},
               {exif("\xFF\xFF", "R03"), p3, "Display P3"},
               {exif("\xFF\xFF", "R03").substr(0, 60), "", "sRGB IEC61966-2.1"}};
  for (const auto& c : cases) {
    write({.exif = c.exif, .icc = c.icc});
    const auto properties = propertiesOf(jpeg);
    EXPECT_EQ(properties.profileName.value_or(*properties.colorSpaceName), c.name);
    EXPECT_EQ(color::profileDescription(properties.color.icc).value_or("sRGB IEC61966-2.1"), c.name);
  }
}

TEST_F(JPEGDecoder, RefusesWhatIsCutOffOrBroken) {
  for (const bool progressive : {false, true}) {
    const std::string whole = write({.progressive = progressive}, 200, 150);
    for (const std::size_t keep : {whole.size() / 2, whole.size() * 9 / 10, whole.size() - 2}) {
      const URL cut = folder.write("cut.jpg", whole.substr(0, keep));
      EXPECT_THROW(ImageSource::open(cut)->verify(0), ImageDecodeError) << keep;
    }
    ImageSource::open(folder.write("trailer.jpg", whole + std::string(5000, 'x')))->verify(0);
    // A header that claims far more than there is ends at once, whatever it claims.
    std::string huge = whole;
    huge.replace(huge.find(progressive ? "\xFF\xC2" : "\xFF\xC0") + 5, 4,
                 "\xEA\x60\xEA\x60");  // 60000 × 60000
    test::expectUndecodable(folder.write("huge.jpg", huge), "huge");
  }
  write({.arithmetic = true});
  test::expectUndecodable(jpeg, "arithmetic code");
  test::expectUndecodable(folder.write("short.jpg", std::string("\xFF\xD8\xFF\xE0\0\1", 6)), "broken header");
  // Every scan, however short, is a pass over the whole image.
  const std::string scans = write({.progressive = true}, 64, 64);
  const auto first = scans.find("\xFF\xDA"), end = scans.find("\xFF\xC4", first);
  const auto repeated = [&](int times) {
    std::string data = scans;
    while (times-- > 0) data.insert(end, scans, first, end - first);
    return folder.write("scans.jpg", data);
  };
  ImageSource::open(repeated(30))->verify(0);
  test::expectUndecodable(repeated(200), "too many scans");
}

TEST_F(JPEGDecoder, SparseCoefficientsGiveTheSamePixels) {
  const struct {
    int width, height, across, down;
    JPEGColors colors;
  } cases[] = {{1043, 131, 2, 2, JPEGColors::rgb}, {300, 97, 1, 1, JPEGColors::rgb},
               {97, 300, 4, 1, JPEGColors::rgb},   {65, 77, 1, 2, JPEGColors::rgb},
               {66, 130, 1, 4, JPEGColors::rgb},   {61, 47, 1, 1, JPEGColors::grey},
               {130, 70, 1, 1, JPEGColors::inks},  {1, 1, 2, 2, JPEGColors::rgb}};
  for (const auto& c : cases) {
    const std::string whole =
        write({.quality = 97, .across = c.across, .down = c.down, .progressive = true, .colors = c.colors},
              c.width, c.height);
    // Where finer scans are missing, libjpeg smooths with the rows above and below.
    const std::string coarse = whole.substr(0, whole.find("\xFF\xC4", whole.find("\xFF\xDA"))) + "\xFF\xD9";
    for (const std::string& data : {whole, coarse}) {
      const URL url = folder.write("b.jpg", data);
      for (const std::int64_t skip : {0, c.height / 2}) {
        const auto plain = openJPEG(ImageInput(url), {}, std::int64_t{1} << 40)->rows(0),
                   sparse = openJPEG(ImageInput(url), {}, 0)->rows(0);
        std::vector<std::uint8_t> expected(static_cast<std::size_t>(c.width) * 4), row = expected;
        plain->skip(skip);
        sparse->skip(skip);
        for (auto y = skip; y < c.height; ++y) {
          plain->read(expected);
          sparse->read(row);
          ASSERT_EQ(row, expected) << c.width << "x" << c.height << " row " << y;
        }
      }
    }
    const URL cut = folder.write("b.jpg", whole.substr(0, whole.size() - 9));
    EXPECT_THROW(openJPEG(ImageInput(cut), {}, 0)->verify(0), ImageDecodeError);
  }
}

TEST_F(JPEGDecoder, KeepsPartsOfWhatItReduces) {
  constexpr int width = 331, height = 217;
  const JPEGFileOptions cases[] = {{},
                                   {.quality = 20, .across = 1, .down = 1},
                                   {.across = 2, .down = 1, .restart = 7},
                                   {.across = 1, .down = 2},
                                   {.across = 4, .down = 1},
                                   {.across = 1, .down = 4},
                                   {.restart = 3, .colors = JPEGColors::grey},
                                   {.colors = JPEGColors::inks}};
  const Rectangle parts[] = {{0, 0, 1, 1}, {0, 150, 90, 67}, {141, 84, 50, 48}, {330, 216, 1, 1}};
  for (JPEGFileOptions options : cases) {
    for (const bool progressive : {false, true}) {
      options.progressive = progressive;
      const std::string whole = write(options, width, height);
      const auto source = ImageSource::open(jpeg);
      const auto kept = [&](ImageSource& of, int atLeast, const Rectangle& part) {
        const auto rows = of.rowsKeeping(0, atLeast, part);
        Bitmap result{.width = part.width, .height = part.height, .pixels = {}, .color = {}};
        result.pixels.resize(static_cast<std::size_t>(part.width * part.height) * 4);
        EXPECT_FALSE(rows->readKept(result.pixels));
        std::vector<std::uint8_t> row(static_cast<std::size_t>(rows->width()) * 4);
        for (auto y = rows->height(); y > 0; --y) rows->read(row);
        return rows->readKept(result.pixels) ? result.pixels : std::vector<std::uint8_t>{};
      };
      for (const Rectangle& part : parts) {
        SCOPED_TRACE(testing::Message() << options.across << options.down << progressive << " at " << part.x);
        const auto expected = views::crop(*source, 0, part.x, part.y, part.width, part.height).pixels;
        EXPECT_EQ(kept(*source, 150, part), expected);
        EXPECT_EQ(kept(*source, 80, part), expected);
        // Of an eighth, only the scans of a progressive image are read whole.
        EXPECT_EQ(kept(*source, 40, part), progressive ? expected : std::vector<std::uint8_t>{});
      }
      if (!progressive) continue;
      // Where scans are missing, pixels depend on more than the part.
      const auto scan = whole.find("\xFF\xC4", whole.find("\xFF\xDA"));
      const auto coarse = ImageSource::open(folder.write("coarse.jpg", whole.substr(0, scan) + "\xFF\xD9"));
      EXPECT_TRUE(kept(*coarse, 150, parts[2]).empty());
    }
  }
}

TEST_F(JPEGDecoder, ManyMetadataSegmentsCostNothing) {
  std::string bomb = write({});
  const std::string segment =
      "\xFF\xE2\xFF\xFF" + std::string("ICC_PROFILE\0\x01\xFF", 14) + std::string(0xFFFD - 14, 'x');
  for (int i = 0; i < 400; ++i) bomb.insert(2, segment);
  const auto source = ImageSource::open(folder.write("bomb.jpg", bomb));
  EXPECT_FALSE(source->properties(0).profileName);
  source->verify(0);
  std::string icc = p3;
  icc[icc.find("mluc") + 9] = '\1';  // claims 65,537 translations
  EXPECT_FALSE(color::profileDescription(icc));
}

}  // namespace
}  // namespace tidewell
