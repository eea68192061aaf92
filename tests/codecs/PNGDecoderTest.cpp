// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "support/Decoding.h"
#include "support/HEIFFile.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::decoded;
using test::number;
using test::propertiesOf;

class PNGDecoder : public testing::Test {
 protected:
  /// A photo; its bytes.
  std::string write(int side, const test::PNGOptions& options = {}) const {
    test::writePNGFile(png, test::photoRaster(side, side), options);
    return files::read(png);
  }

  const test::TemporaryFolder folder;
  const URL png = folder / "a.png";
};

TEST_F(PNGDecoder, DeliversPremultipliedRows) {
  const test::Raster soft(61, 37, [](int x, int y) {
    return test::Pixel{static_cast<std::uint8_t>(x * 4), static_cast<std::uint8_t>(y * 6), 200,
                       static_cast<std::uint8_t>(x * y % 256)};
  });
  std::vector<std::uint8_t> expected;
  for (const test::Pixel& pixel : soft.pixels) {
    for (std::size_t c = 0; c < 3; ++c)
      expected.push_back(static_cast<std::uint8_t>((pixel[c] * pixel[3] * 2 + 255) / 510));
    expected.push_back(pixel[3]);
  }
  for (const bool interlaced : {false, true}) {
    test::writePNGFile(png, soft, {.alpha = true, .interlaced = interlaced});
    EXPECT_EQ(decoded(png), expected);
    const auto source = ImageSource::open(png);
    const auto rows = source->rows(0);
    rows->skip(37);
    EXPECT_THROW(rows->skip(1), ImageDecodeError);
  }
}

TEST_F(PNGDecoder, DecodesEveryKindOfPixel) {
  using Bytes = std::vector<std::uint8_t>;
  const auto bytes = [](const Bytes& values) { return std::string(values.begin(), values.end()); };
  /// One pixel value that is clear, or the alpha of a palette's first colours.
  const auto clear = [&](const Bytes& values) { return test::pngChunk("tRNS", bytes(values)); };
  const std::string palette = test::pngChunk("PLTE", bytes({255, 0, 0, 10, 20, 30}));
  constexpr int grey = 0, rgb = 2, indexed = 3, greyAlpha = 4, rgba = 6;
  const struct {
    int depth, type;
    Bytes row;
    std::string chunks;
    bool alpha;
    Bytes expected;
  } cases[] = {
      {1, grey, {0x80}, "", false, {255, 255, 255, 255, 0, 0, 0, 255}},
      {2, grey, {0x60}, "", false, {85, 85, 85, 255, 170, 170, 170, 255}},
      {4, grey, {0x08}, "", false, {0, 0, 0, 255, 136, 136, 136, 255}},
      {8, grey, {64, 65}, clear({0, 64}), true, {0, 0, 0, 0, 65, 65, 65, 255}},
      // Nearest, where the upper byte alone would be 0.
      {16, grey, {0, 255, 128, 128}, "", false, {1, 1, 1, 255, 128, 128, 128, 255}},
      {16, grey, {18, 52, 18, 53}, clear({18, 52}), true, {0, 0, 0, 0, 18, 18, 18, 255}},
      {2, indexed, {0x40}, palette, false, {10, 20, 30, 255, 255, 0, 0, 255}},
      {8, indexed, {0, 1}, palette + clear({128}), true, {128, 0, 0, 128, 10, 20, 30, 255}},
      {8, rgb, {1, 2, 3, 1, 2, 4}, clear({0, 1, 0, 2, 0, 3}), true, {0, 0, 0, 0, 1, 2, 4, 255}},
      {8, greyAlpha, {200, 128}, "", true, {100, 100, 100, 128}},
      {16, rgba, {255, 255, 128, 0, 0, 0, 128, 128}, "", true, {128, 64, 0, 128}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const auto width = static_cast<int>(c.expected.size() / 4);
    const URL url = folder.write("b.png", test::pngOfOneRow(width, c.depth, c.type, bytes(c.row), c.chunks));
    EXPECT_EQ(decoded(url), c.expected);
    EXPECT_EQ(propertiesOf(url).hasAlpha, c.alpha);
    EXPECT_EQ(propertiesOf(url).bitsPerSample, std::max(c.depth, 8));
  }
}

TEST_F(PNGDecoder, NamesTheColoursThatAFileClaims) {
  const std::string plain = write(8), p3 = color::makeRGBProfile("Display P3", color::displayP3);
  const auto with = [&](const char* type, const std::string& data) {
    return test::withChunk(plain, type, data);
  };
  const auto primaries = [&](std::uint64_t greenX) {
    return with("cHRM", number(31270, 4) + number(32900, 4) + number(64000, 4) + number(33000, 4) +
                            number(greenX, 4) + number(60000, 4) + number(15000, 4) + number(6000, 4));
  };
  const std::string sRGB = "sRGB IEC61966-2.1", untagged = "Untagged sRGB";
  const struct {
    std::string data, expected;
    bool srgb;
  } cases[] = {
      {plain, untagged, true},
      {with("sRGB", std::string(1, '\0')), sRGB, true},
      {with("gAMA", number(45455, 4)), untagged, true},
      {with("gAMA", number(100000, 4)), "RGB gamma 1", false},
      {primaries(30000), sRGB, true},
      {primaries(21000), "Calibrated RGB primaries 0.3127 0.329 0.64 0.33 0.21 0.6 0.15 0.06", false},
      {with("cICP", number(0x010D0001, 4)), sRGB, true},
      {with("cICP", number(0x0C0D0001, 4)), "Display P3", false},
      {with("cICP", number(0x09100001, 4)), "Code points 9 16 0 1", false},
      {write(8, {.icc = p3}), "Display P3", false},
  };
  for (const auto& c : cases) {
    const auto properties = propertiesOf(folder.write("b.png", c.data));
    EXPECT_EQ(properties.profileName.value_or(*properties.colorSpaceName), c.expected);
    EXPECT_EQ(properties.color.srgb, c.srgb) << c.expected;
  }
  EXPECT_EQ(propertiesOf(png).color.icc, p3);
  // Profiles without a description are told apart, and from no profile.
  std::set<std::optional<std::string>> names = {std::nullopt};
  for (const auto& space : {color::displayP3, color::bt709}) {
    write(8, {.icc = color::makeRGBProfile("", space)});
    names.insert(propertiesOf(png).profileName);
  }
  EXPECT_EQ(names.size(), 3U);
}

TEST_F(PNGDecoder, RefusesWhatItCannotHold) {
  // A million pixels each way, interlaced.
  const std::string header = number(1'000'000, 4) + number(1'000'000, 4) + std::string("\x08\x02\0\0\x01", 5);
  const std::string whole = write(64);
  const std::string huge = whole.substr(0, 8) + test::pngChunk("IHDR", header) + whole.substr(33);
  test::expectUndecodable(folder.write("b.png", huge), "huge");
  EXPECT_THROW(ImageSource::open(folder.write("text.png", "no image")), ImageDecodeError);
  EXPECT_THROW(ImageSource::open(folder / "missing.png"), FileError);
}

}  // namespace
}  // namespace tidewell
