#include <gtest/gtest.h>

#include <algorithm>
#include <span>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/platform/Files.h"
#include "support/Decoding.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::decoded;
using test::expectUndecodable;
using test::Pixel;
using test::propertiesOf;
using test::Raster;
using test::TemporaryFolder;

TEST(JPEGDecoder, SkippedRowsAgreeWithPlainOnes) {
  const TemporaryFolder folder;
  const Raster raster = test::photoRaster(65, 90);
  constexpr std::size_t bytes = 65 * 4;
  for (const auto& [across, down] : {std::pair{1, 1}, {2, 1}, {1, 2}, {2, 2}, {4, 1}, {4, 2}, {1, 4}}) {
    for (const bool progressive : {false, true}) {
      SCOPED_TRACE(testing::Message() << across << "x" << down << ", progressive " << progressive);
      test::JPEGFileOptions options;
      options.across = across;
      options.down = down;
      options.progressive = progressive;
      test::writeJPEGFile(folder / "a.jpg", raster, options);
      const auto whole = decoded(folder / "a.jpg");
      const auto source = ImageSource::open(folder / "a.jpg");
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

TEST(JPEGDecoder, ReducesAsFarAsAsked) {
  const TemporaryFolder folder;
  for (const int shared : {1, 2}) {
    test::JPEGFileOptions options;
    options.across = options.down = shared;
    test::writeJPEGFile(folder / "a.jpg", test::photoRaster(331, 217), options);
    const auto source = ImageSource::open(folder / "a.jpg");
    const struct {
      std::int64_t atLeast, width;
    } sizes[] = {{0, 331}, {331, 331}, {330, 331}, {200, 331}, {100, 166}, {1, 42}};
    for (const auto& size : sizes)
      EXPECT_EQ(source->rows(0, size.atLeast)->width(), size.width) << size.atLeast;
  }
}

TEST(JPEGDecoder, ConvertsOtherColours) {
  const TemporaryFolder folder;
  const struct {
    test::JPEGColors colors;
    Pixel stored, expected;
    const char* space;
  } cases[] = {{test::JPEGColors::grey, {90, 0, 0, 0}, {90, 90, 90, 255}, "sRGB IEC61966-2.1"},
               // Adobe's inks are stored inverted: 255 is no ink.
               {test::JPEGColors::inks, {255, 128, 0, 255}, {255, 128, 0, 255}, "Generic CMYK"},
               {test::JPEGColors::inks, {255, 255, 255, 100}, {100, 100, 100, 255}, "Generic CMYK"}};
  for (const auto& c : cases) {
    test::JPEGFileOptions options;
    options.quality = 100;
    options.colors = c.colors;
    test::writeJPEGFile(folder / "a.jpg", Raster(16, 16, [&](int, int) { return c.stored; }), options);
    const auto pixels = decoded(folder / "a.jpg");
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(pixels[i], c.expected[i], 2) << c.space << i;
    EXPECT_EQ(propertiesOf(folder / "a.jpg").colorSpaceName, c.space);
  }
  test::JPEGFileOptions pair;
  pair.colors = test::JPEGColors::pair;
  test::writeJPEGFile(folder / "a.jpg", test::photoRaster(16, 16), pair);
  EXPECT_THROW(ImageSource::open(folder / "a.jpg"), ImageDecodeError);
}

TEST(JPEGDecoder, ReadsOrientationAndProfile) {
  const TemporaryFolder folder;
  const std::string icc = color::makeRGBProfile("Display P3", color::displayP3);
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
    test::JPEGFileOptions options;
    options.exif = c.exif;
    options.icc = icc;
    test::writeJPEGFile(folder / "a.jpg", test::photoRaster(16, 16), options);
    const auto properties = propertiesOf(folder / "a.jpg");
    EXPECT_EQ(properties.orientation, c.expected);
    EXPECT_EQ(properties.profileName, "Display P3");
    EXPECT_EQ(properties.color.icc, icc);
    // Decoders pass over stray bytes between segments, so they must not hide what stands behind them.
    std::string stray = files::read(folder / "a.jpg");
    stray.insert(stray.find("\xFF\xE1") == std::string::npos ? 20 : stray.find("\xFF\xE1"), 3, '\x11');
    const auto behind = propertiesOf(folder.write("stray.jpg", stray));
    EXPECT_EQ(behind.orientation, c.expected);
    EXPECT_EQ(behind.profileName, "Display P3");
  }
}

TEST(JPEGDecoder, KnowsHowCamerasMarkAdobeRGB) {
  const TemporaryFolder folder;
  /// Three directories of one or two entries each: the first, the camera's, that of interoperability.
  const auto exif = [](const std::string& space, const std::string& index) {
    const std::string one("\1\0\0\0", 4);
    return std::string("Exif\0\0II*\0\x08\0\0\0", 14) + std::string("\1\0\x69\x87\4\0", 6) + one +
           std::string("\x1A\0\0\0\0\0\0\0", 8) + std::string("\2\0\1\xA0\3\0", 6) + one + space +
           std::string("\0\0\5\xA0\4\0", 6) + one + std::string("\x38\0\0\0\0\0\0\0", 8) +
           std::string("\1\0\1\0\2\0\4\0\0\0", 10) + index + std::string(5, '\0');
  };
  const std::string p3 = color::makeRGBProfile("Display P3", color::displayP3);
  const struct {
    std::string exif, icc, name;
  } cases[] = {{exif("\xFF\xFF", "R03"), "", "Adobe RGB (1998)"},
               {exif(std::string("\2\0", 2), "R98"), "", "Adobe RGB (1998)"},
               {exif("\xFF\xFF", "R98"), "", "sRGB IEC61966-2.1"},
               {exif(std::string("\1\0", 2), "R03"), "", "sRGB IEC61966-2.1"},
               {exif("\xFF\xFF", "R03"), p3, "Display P3"},
               {exif("\xFF\xFF", "R03").substr(0, 60), "", "sRGB IEC61966-2.1"}};
  for (const auto& c : cases) {
    test::JPEGFileOptions options;
    options.exif = c.exif;
    options.icc = c.icc;
    test::writeJPEGFile(folder / "a.jpg", test::photoRaster(16, 16), options);
    const auto properties = propertiesOf(folder / "a.jpg");
    EXPECT_EQ(properties.profileName.value_or(*properties.colorSpaceName), c.name);
    EXPECT_EQ(color::profileDescription(properties.color.icc).value_or("sRGB IEC61966-2.1"), c.name);
  }
}

TEST(JPEGDecoder, RefusesWhatIsCutOffOrBroken) {
  const TemporaryFolder folder;
  for (const bool progressive : {false, true}) {
    test::JPEGFileOptions options;
    options.progressive = progressive;
    test::writeJPEGFile(folder / "a.jpg", test::photoRaster(200, 150), options);
    const std::string whole = files::read(folder / "a.jpg");
    for (const std::size_t keep : {whole.size() / 2, whole.size() * 9 / 10, whole.size() - 2}) {
      const URL cut = folder.write("cut.jpg", whole.substr(0, keep));
      EXPECT_THROW(ImageSource::open(cut)->verify(0), ImageDecodeError) << keep;
    }
    ImageSource::open(folder.write("trailer.jpg", whole + std::string(5000, 'x')))->verify(0);
  }
  test::JPEGFileOptions arithmetic;
  arithmetic.arithmetic = true;
  test::writeJPEGFile(folder / "a.jpg", test::photoRaster(200, 150), arithmetic);
  expectUndecodable(folder / "a.jpg", "arithmetic code");
  expectUndecodable(folder.write("short.jpg", std::string("\xFF\xD8\xFF\xE0\0\1", 6)), "broken header");
  // A header that claims far more than there is ends at once, whatever it claims.
  test::JPEGFileOptions progressive;
  progressive.progressive = true;
  for (const bool coefficients : {false, true}) {
    test::writeJPEGFile(folder / "a.jpg", test::photoRaster(64, 64),
                        coefficients ? progressive : test::JPEGFileOptions{});
    std::string huge = files::read(folder / "a.jpg");
    const auto frame = huge.find(coefficients ? "\xFF\xC2" : "\xFF\xC0");
    ASSERT_NE(frame, std::string::npos);
    huge.replace(frame + 5, 4, "\xEA\x60\xEA\x60");  // 60000 × 60000
    expectUndecodable(folder.write("huge.jpg", huge), "huge");
  }
  // Every scan, however short, is a pass over the whole image.
  const std::string scans = files::read(folder / "a.jpg");
  const auto first = scans.find("\xFF\xDA"), end = scans.find("\xFF\xC4", first);
  const auto repeated = [&](int times) {
    std::string data = scans;
    while (times-- > 0) data.insert(end, scans, first, end - first);
    return folder.write("scans.jpg", data);
  };
  ImageSource::open(repeated(30))->verify(0);
  expectUndecodable(repeated(200), "too many scans");
}

TEST(JPEGDecoder, SparseCoefficientsGiveTheSamePixels) {
  const TemporaryFolder folder;
  const struct {
    int width, height, across, down;
    test::JPEGColors colors;
  } cases[] = {{1043, 131, 2, 2, test::JPEGColors::rgb}, {300, 97, 1, 1, test::JPEGColors::rgb},
               {97, 300, 4, 1, test::JPEGColors::rgb},   {65, 77, 1, 2, test::JPEGColors::rgb},
               {66, 130, 1, 4, test::JPEGColors::rgb},   {61, 47, 1, 1, test::JPEGColors::grey},
               {130, 70, 1, 1, test::JPEGColors::inks},  {1, 1, 2, 2, test::JPEGColors::rgb}};
  for (const auto& c : cases) {
    test::JPEGFileOptions options{.quality = 97, .across = c.across, .down = c.down, .progressive = true};
    options.colors = c.colors;
    test::writeJPEGFile(folder / "a.jpg", test::photoRaster(c.width, c.height), options);
    const std::string whole = files::read(folder / "a.jpg");
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
    EXPECT_THROW(
        openJPEG(ImageInput(folder.write("b.jpg", whole.substr(0, whole.size() - 9))), {}, 0)->verify(0),
        ImageDecodeError);
  }
}

TEST(JPEGDecoder, ManyMetadataSegmentsCostNothing) {
  const TemporaryFolder folder;
  test::writeJPEGFile(folder / "a.jpg", test::photoRaster(16, 16));
  const std::string plain = files::read(folder / "a.jpg");
  std::string bomb = plain.substr(0, 2);
  const std::string segment =
      "\xFF\xE2\xFF\xFF" + std::string("ICC_PROFILE\0\x01\xFF", 14) + std::string(0xFFFD - 14, 'x');
  for (int i = 0; i < 400; ++i) bomb += segment;
  const URL url = folder.write("bomb.jpg", bomb + plain.substr(2));
  EXPECT_FALSE(propertiesOf(url).profileName);
  ImageSource::open(url)->verify(0);
  std::string icc = color::makeRGBProfile("Display P3", color::displayP3);
  icc[icc.find("mluc") + 9] = '\1';  // claims 65,537 translations
  EXPECT_FALSE(color::profileDescription(icc));
}

}  // namespace
}  // namespace tidewell
