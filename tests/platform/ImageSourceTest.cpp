#include "CompressionKit/platform/codecs/ImageSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <span>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/codecs/ColorProfile.h"
#include "CompressionKit/platform/codecs/Decoders.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::decoded;
using test::Pixel;
using test::Raster;
using test::TemporaryFolder;

std::vector<std::uint8_t> premultiplied(const Raster& raster) {
  std::vector<std::uint8_t> bytes;
  for (const Pixel& pixel : raster.pixels) {
    for (std::size_t c = 0; c < 3; ++c) {
      bytes.push_back(static_cast<std::uint8_t>((pixel[c] * pixel[3] * 2 + 255) / 510));
    }
    bytes.push_back(pixel[3]);
  }
  return bytes;
}

ImageProperties propertiesOf(const URL& url) {
  return ImageSource::open(url)->properties(0);
}

void expectUndecodable(const URL& url, const std::string& name) {
  EXPECT_THROW(ImageSource::open(url)->verify(0), ImageDecodeError) << name;
  EXPECT_THROW(decoded(url), ImageDecodeError) << name;
}

// --- PNG ---------------------------------------------------------------------------------------------------

TEST(PNGDecoder, DeliversPremultipliedRows) {
  const TemporaryFolder folder;
  const Raster soft(61, 37, [](int x, int y) {
    return Pixel{static_cast<std::uint8_t>(x * 4), static_cast<std::uint8_t>(y * 6), 200,
                 static_cast<std::uint8_t>(x * y % 256)};
  });
  for (const bool interlaced : {false, true}) {
    test::writePNGFile(folder / "a.png", soft, {.alpha = true, .interlaced = interlaced});
    EXPECT_EQ(decoded(folder / "a.png"), premultiplied(soft));
    const auto source = ImageSource::open(folder / "a.png");
    source->verify(0);
    // Rows after a skip are those of a plain read.
    const auto rows = source->rows(0);
    std::vector<std::uint8_t> row(61 * 4);
    rows->skip(20);
    rows->read(row);
    const auto whole = premultiplied(soft);
    EXPECT_TRUE(std::equal(row.begin(), row.end(), whole.begin() + 20 * 61 * 4));
    EXPECT_THROW(rows->skip(17), ImageDecodeError);
  }
  EXPECT_TRUE(propertiesOf(folder / "a.png").hasAlpha);
}

TEST(PNGDecoder, DecodesEveryKindOfPixel) {
  using Bytes = std::vector<std::uint8_t>;
  const auto bytes = [](const Bytes& values) { return std::string(values.begin(), values.end()); };
  const auto transparent = [&](const Bytes& values) { return test::pngChunk("tRNS", bytes(values)); };
  const std::string palette = test::pngChunk("PLTE", bytes({255, 0, 0, 10, 20, 30}));
  constexpr int grey = 0, rgb = 2, indexed = 3, greyAlpha = 4, rgba = 6;
  const struct {
    const char* name;
    int width, depth, type;
    Bytes row;
    std::string chunks;
    bool alpha;
    Bytes expected;
  } cases[] = {
      {"grey 1", 2, 1, grey, {0x80}, "", false, {255, 255, 255, 255, 0, 0, 0, 255}},
      {"grey 2", 2, 2, grey, {0x60}, "", false, {85, 85, 85, 255, 170, 170, 170, 255}},
      {"grey 4", 2, 4, grey, {0x08}, "", false, {0, 0, 0, 255, 136, 136, 136, 255}},
      {"grey 8, one clear", 2, 8, grey, {64, 65}, transparent({0, 64}), true, {0, 0, 0, 0, 65, 65, 65, 255}},
      // Nearest, where the upper byte alone would be 0.
      {"grey 16", 2, 16, grey, {0, 255, 128, 128}, "", false, {1, 1, 1, 255, 128, 128, 128, 255}},
      {"grey 16, one clear",
       2,
       16,
       grey,
       {18, 52, 18, 53},
       transparent({18, 52}),
       true,
       {0, 0, 0, 0, 18, 18, 18, 255}},
      {"palette", 2, 2, indexed, {0x40}, palette, false, {10, 20, 30, 255, 255, 0, 0, 255}},
      {"palette, one soft",
       2,
       8,
       indexed,
       {0, 1},
       palette + transparent({128}),
       true,
       {128, 0, 0, 128, 10, 20, 30, 255}},
      {"RGB, one clear",
       2,
       8,
       rgb,
       {1, 2, 3, 1, 2, 4},
       transparent({0, 1, 0, 2, 0, 3}),
       true,
       {0, 0, 0, 0, 1, 2, 4, 255}},
      {"grey with alpha", 1, 8, greyAlpha, {200, 128}, "", true, {100, 100, 100, 128}},
      {"RGBA 16", 1, 16, rgba, {255, 255, 128, 0, 0, 0, 128, 128}, "", true, {128, 64, 0, 128}},
  };
  const TemporaryFolder folder;
  for (const auto& c : cases) {
    const URL url =
        folder.write("a.png", test::pngOfOneRow(c.width, c.depth, c.type, bytes(c.row), c.chunks));
    EXPECT_EQ(decoded(url), c.expected) << c.name;
    EXPECT_EQ(propertiesOf(url).hasAlpha, c.alpha) << c.name;
    EXPECT_EQ(propertiesOf(url).bitsPerSample, std::max(c.depth, 8)) << c.name;
  }
}

TEST(PNGDecoder, NamesTheColoursThatAFileClaims) {
  const TemporaryFolder folder;
  const Raster raster = test::photoRaster(8, 8);
  test::writePNGFile(folder / "plain.png", raster);
  const std::string plain = files::read(folder / "plain.png");
  const auto gama = [](std::uint32_t v) {
    return std::string{static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                       static_cast<char>(v)};
  };
  const auto primaries = [&](std::uint32_t greenX) {
    return gama(31270) + gama(32900) + gama(64000) + gama(33000) + gama(greenX) + gama(60000) + gama(15000) +
           gama(6000);
  };
  const std::string p3 = color::makeRGBProfile("Display P3", color::displayP3);
  const auto withProfile = [&](const char* name, const std::string& icc) {
    test::writePNGFile(folder / name, raster, {.alpha = false, .interlaced = false, .icc = icc, .gamma = {}});
    return files::read(folder / name);
  };
  const struct {
    const char* name;
    std::string data;
    const char* expected;
    bool srgb;
  } cases[] = {
      {"untagged", plain, "Untagged sRGB", true},
      {"sRGB", test::withChunk(plain, "sRGB", std::string(1, '\0')), "sRGB IEC61966-2.1", true},
      {"gamma of sRGB", test::withChunk(plain, "gAMA", gama(45455)), "Untagged sRGB", true},
      {"linear", test::withChunk(plain, "gAMA", gama(100000)), "RGB gamma 1", false},
      {"primaries of sRGB", test::withChunk(plain, "cHRM", primaries(30000)), "sRGB IEC61966-2.1", true},
      {"primaries of Adobe RGB", test::withChunk(plain, "cHRM", primaries(21000)),
       "Calibrated RGB primaries 0.3127 0.329 0.64 0.33 0.21 0.6 0.15 0.06", false},
      {"code points of sRGB", test::withChunk(plain, "cICP", std::string("\x01\x0D\0\x01", 4)),
       "sRGB IEC61966-2.1", true},
      {"code points of P3", test::withChunk(plain, "cICP", std::string("\x0C\x0D\0\x01", 4)), "Display P3",
       false},
      {"code points of PQ", test::withChunk(plain, "cICP", std::string("\x09\x10\0\x01", 4)),
       "Code points 9 16 0 1", false},
      {"profile", withProfile("p3.png", p3), "Display P3", false},
  };
  for (const auto& c : cases) {
    const auto properties = propertiesOf(folder.write("case.png", c.data));
    EXPECT_EQ(properties.profileName.value_or(*properties.colorSpaceName), c.expected) << c.name;
    EXPECT_EQ(properties.color.srgb, c.srgb) << c.name;
  }
  EXPECT_EQ(propertiesOf(folder / "p3.png").color.icc, p3);
  // Profiles without a description are told apart, and from no profile.
  std::set<std::optional<std::string>> names = {std::nullopt};
  for (const auto& space : {color::displayP3, color::bt709}) {
    withProfile("unnamed.png", color::makeRGBProfile("", space));
    names.insert(propertiesOf(folder / "unnamed.png").profileName);
  }
  EXPECT_EQ(names.size(), 3U);
}

TEST(PNGDecoder, FindsTheOrientationWhereverItStands) {
  const TemporaryFolder folder;
  test::writePNGFile(folder / "plain.png", test::photoRaster(8, 8));
  const std::string plain = files::read(folder / "plain.png");
  const std::string block = test::exifWithOrientation(6).substr(6);
  EXPECT_FALSE(propertiesOf(folder / "plain.png").orientation);
  EXPECT_EQ(propertiesOf(folder.write("front.png", test::withChunk(plain, "eXIf", block))).orientation, 6);
  const std::string behind =
      plain.substr(0, plain.size() - 12) + test::pngChunk("eXIf", block) + test::pngChunk("IEND", "");
  EXPECT_EQ(propertiesOf(folder.write("behind.png", behind)).orientation, 6);
}

TEST(PNGDecoder, RefusesDamage) {
  const TemporaryFolder folder;
  test::writePNGFile(folder / "a.png", test::photoRaster(64, 64));
  const std::string whole = files::read(folder / "a.png");
  for (const std::size_t keep : {whole.size() / 2, whole.size() - 20}) {
    expectUndecodable(folder.write("cut.png", whole.substr(0, keep)), "cut at " + std::to_string(keep));
  }
  std::string broken = whole;
  broken[whole.size() / 2] ^= 0x55;
  expectUndecodable(folder.write("broken.png", broken), "broken sum");
  std::string huge = whole.substr(0, 8) +
                     test::pngChunk("IHDR", std::string("\0\x0F\x42\x40\0\x0F\x42\x40\x08\x02\0\0\x01", 13)) +
                     whole.substr(33);
  expectUndecodable(folder.write("huge.png", huge), "interlaced and huge");
  EXPECT_THROW(ImageSource::open(folder.write("text.png", "no image")), ImageDecodeError);
  EXPECT_THROW(ImageSource::open(folder / "missing.png"), FileError);
}

// --- JPEG --------------------------------------------------------------------------------------------------

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
        const auto plain = openJPEG(url, std::int64_t{1} << 40)->rows(0), sparse = openJPEG(url, 0)->rows(0);
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
    EXPECT_THROW(openJPEG(folder.write("b.jpg", whole.substr(0, whole.size() - 9)), 0)->verify(0),
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

// --- GIF ---------------------------------------------------------------------------------------------------

/// The canvas as one letter a pixel: r, g, b, w, or "." for nothing.
std::string canvas(const URL& url, std::size_t index) {
  const auto pixels = decoded(url, index);
  std::string text;
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    const auto* p = pixels.data() + i;
    text += p[3] == 0 ? '.' : p[0] && p[1] ? 'w' : p[0] ? 'r' : p[1] ? 'g' : 'b';
  }
  return text;
}

TEST(GIFDecoder, ComposesFrames) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = 3;
  file.height = 2;
  const auto frame = [](int left, int top, int width, int height, std::vector<std::uint8_t> indexes,
                        int disposal) {
    test::GIFFrame result;
    result.left = left, result.top = top, result.width = width, result.height = height;
    result.indexes = std::move(indexes);
    result.disposal = disposal;
    return result;
  };
  file.frames = {frame(0, 0, 3, 2, {0}, 1),         // all red, stays
                 frame(1, 0, 1, 2, {1}, 2),         // a green column, cleared afterwards
                 frame(0, 0, 2, 1, {2}, 3),         // two blue pixels, taken back afterwards
                 frame(2, 1, 4, 4, {3}, 0),         // white, mostly outside the screen
                 frame(0, 0, 3, 1, {0, 1, 2}, 0)};  // with a transparent colour
  file.frames[4].transparent = 1;
  test::GIFFrame local = frame(0, 1, 1, 1, {1}, 0);
  local.palette = {{0, 0, 0, 255}, {255, 255, 255, 255}};
  file.frames.push_back(local);
  test::writeGIFFile(folder / "a.gif", file);
  const std::string expected[] = {"rrrrrr", "rgrrgr", "bbrr.r", "r.rr.w", "r.br.w", "r.bw.w"};
  for (const std::size_t index : {0, 1, 2, 3, 4, 5, 2, 0, 5}) {  // forwards, then in any order
    EXPECT_EQ(canvas(folder / "a.gif", index), expected[index]) << index;
  }
  const auto source = ImageSource::open(folder / "a.gif");
  for (const std::size_t index : {4, 1}) {
    std::vector<std::uint8_t> row(12);
    const auto rows = source->rows(index);
    rows->skip(1);
    rows->read(row);
  }
  EXPECT_TRUE(propertiesOf(folder / "a.gif").hasAlpha);
}

TEST(GIFDecoder, KnowsWhetherSomethingCanShowThrough) {
  const TemporaryFolder folder;
  test::GIFFrame whole;
  whole.width = whole.height = 4;
  whole.indexes = {0};
  test::GIFFrame clear = whole, part = whole, cleared = whole;
  clear.transparent = 3;
  part.width = 3;
  cleared.disposal = 2;
  const struct {
    std::vector<test::GIFFrame> frames;
    bool alpha;
  } cases[] = {{{whole}, false},   {{clear}, true},         {{part}, true},        {{whole, part}, false},
               {{cleared}, false}, {{cleared, part}, true}, {{whole, clear}, true}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    test::GIFFile file;
    file.frames = cases[i].frames;
    test::writeGIFFile(folder / "a.gif", file);
    EXPECT_EQ(propertiesOf(folder / "a.gif").hasAlpha, cases[i].alpha) << i;
  }
}

TEST(GIFDecoder, ReadsInterlacedFrames) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = 1;
  file.height = 11;
  test::GIFFrame frame;
  frame.height = 11;
  for (int y = 0; y < 11; ++y) frame.indexes.push_back(static_cast<std::uint8_t>(y % 4));
  frame.interlaced = true;
  file.frames = {frame};
  test::writeGIFFile(folder / "a.gif", file);
  EXPECT_EQ(canvas(folder / "a.gif", 0), "rgbwrgbwrgb");
}

TEST(GIFDecoder, ReadsTimingAsStored) {
  const TemporaryFolder folder;
  for (const int loop : {-1, 0, 1, 65535}) {
    test::GIFFile file;
    file.loop = loop;
    for (const int delay : {0, 1, 10, 65535}) {
      test::GIFFrame frame;
      frame.indexes = {0};
      frame.delay = delay;
      file.frames.push_back(frame);
    }
    test::writeGIFFile(folder / "a.gif", file);
    const auto source = ImageSource::open(folder / "a.gif");
    ASSERT_EQ(source->count(), 4U);
    EXPECT_EQ(source->gifLoopCount(), loop < 0 ? std::nullopt : std::optional<std::int64_t>(loop));
    const double delays[] = {0, 0.01, 0.1, 655.35};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(source->properties(i).gifDelay, delays[i]);
  }
}

TEST(GIFDecoder, BearsMissingTrailersAndRefusesMissingData) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = file.height = 40;
  test::GIFFrame frame;
  frame.width = frame.height = 40;
  for (int i = 0; i < 1600; ++i) frame.indexes.push_back(static_cast<std::uint8_t>(i * i * 31 % 1009 % 4));
  test::GIFFrame other = frame;
  std::ranges::reverse(other.indexes);
  file.frames = {frame, other};
  test::writeGIFFile(folder / "a.gif", file);
  const std::string whole = files::read(folder / "a.gif");
  EXPECT_EQ(ImageSource::open(folder.write("b.gif", whole.substr(0, whole.size() - 1)))->count(), 2U);
  EXPECT_EQ(ImageSource::open(folder.write("c.gif", whole + "behind the trailer"))->count(), 2U);
  // Cut in the second frame: it is announced, the first can be seen, the second cannot.
  const URL cut = folder.write("d.gif", whole.substr(0, whole.size() - 40));
  EXPECT_EQ(ImageSource::open(cut)->count(), 2U);
  ImageSource::open(cut)->verify(0);
  EXPECT_THROW(decoded(cut, 1), ImageDecodeError);
  // What was drawn of a frame that broke off does not pass for the frame before it.
  const auto source = ImageSource::open(cut);
  EXPECT_THROW(source->rows(1), ImageDecodeError);
  std::vector<std::uint8_t> row(160);
  source->rows(0)->read(row);
  const auto first = decoded(cut, 0);
  EXPECT_TRUE(std::equal(row.begin(), row.end(), first.begin()));
  expectUndecodable(folder.write("e.gif", whole.substr(0, whole.size() / 3)), "cut in the first frame");
  const URL none = folder.write("f.gif", whole.substr(0, 13 + 12) + ";");
  EXPECT_EQ(ImageSource::open(none)->count(), 0U);
  std::string huge = whole;
  huge.replace(6, 4, "\xFF\xFF\xFF\xFF");
  expectUndecodable(folder.write("g.gif", huge), "huge canvas");
  // The size of a frame is judged before its data is read: a few bytes would fill all of it.
  huge = whole;
  huge.replace(huge.find(std::string("\x2C\0\0\0\0", 5)) + 5, 4, "\xFF\xFF\xFF\xFF");
  try {
    decoded(folder.write("h.gif", huge));
    ADD_FAILURE();
  } catch (const ImageDecodeError& error) {
    EXPECT_EQ(error.reason(), "frame of impossible size");
  }
}

}  // namespace
}  // namespace tidewell
