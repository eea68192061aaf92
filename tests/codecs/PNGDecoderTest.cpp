#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/platform/Error.h"
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

}  // namespace
}  // namespace tidewell
