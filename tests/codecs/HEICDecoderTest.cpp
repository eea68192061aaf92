// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEICDecoder.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cmath>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/Views.h"
#include "support/HEICSample.h"

namespace tidewell {
namespace {

using test::DeepPixel;
using test::HEIFFile;
using test::Picture;

/// The largest difference of any component from the picture, both premultiplied, in steps of 8 bits.
int deviation(const Bitmap& bitmap, const Picture& picture) {
  if (bitmap.width != picture.width || bitmap.height != picture.height) return 1000;
  int largest = 0;
  for (std::int64_t y = 0; y < picture.height; ++y) {
    for (std::int64_t x = 0; x < picture.width; ++x) {
      const DeepPixel expected = picture.at(x, y);
      for (std::size_t c = 0; c < 4; ++c) {
        const double straight = expected[c] / 257.0;
        const double value = c == 3 ? straight : straight * expected[3] / 65535.0;
        const int actual = bitmap.row(y)[static_cast<std::size_t>(x) * 4 + c];
        largest = std::max(largest, static_cast<int>(std::abs(actual - value)));
      }
    }
  }
  return largest;
}

Bitmap stored(ImageSource& source) {
  const ImageProperties properties = source.properties(0);
  return views::crop(source, 0, 0, 0, properties.width, properties.height);
}

std::optional<std::string> profileOf(ImageSource& source) {
  const ImageProperties properties = source.properties(0);
  return properties.profileName ? properties.profileName : properties.colorSpaceName;
}

class HEICDecoderTest : public testing::Test {
 protected:
  void SetUp() override { TIDEWELL_NEEDS_HEIF_ENCODER(); }

  std::unique_ptr<ImageSource> open(const HEIFFile& file) const {
    file.write(heic);
    return std::make_unique<HEICSource>(heic);
  }
  /// What a conversion writes of the primary image.
  std::unique_ptr<ImageSource> converted(const HEIFFile& file) const {
    file.write(heic);
    HEICSource source(heic);
    source.writeUprightPNG(source.primaryIndex(), Descriptor(creat(png.path().c_str(), 0600)));
    return ImageSource::open(png);
  }
  /// The picture is stored like this, and a conversion shows it upright.
  void expectPicture(const HEIFFile& file, const Picture& picture, int orientation, int tolerance = 8) const {
    const auto source = open(file), result = converted(file);
    const ImageProperties before = source->properties(0), after = result->properties(0);
    EXPECT_EQ(before.orientation, orientation);
    EXPECT_LE(deviation(stored(*source), picture), tolerance);
    const Bitmap upright = views::upright(stored(*source), orientation);
    EXPECT_EQ(stored(*result).pixels, upright.pixels);
    EXPECT_EQ(std::pair(after.width, after.height), std::pair(upright.width, upright.height));
    EXPECT_EQ(after.orientation.value_or(1), 1);
    EXPECT_EQ(after.hasAlpha, before.hasAlpha);
    EXPECT_EQ(after.color, before.color);
  }

  const test::TemporaryFolder folder;
  const URL heic = folder / "photo.heic";
  const URL png = folder / "photo.png";
};

TEST_F(HEICDecoderTest, TurnsAndMirroringsBecomeOneOrientation) {
  const HEIFFile plain = test::encodeHEIC(test::slopes());
  const struct {
    std::vector<std::string> boxes;
    int orientation;
  } cases[] = {{{}, 1},
               {{test::irot(1)}, 8},
               {{test::irot(2)}, 3},
               {{test::irot(3)}, 6},
               {{test::imir(1)}, 2},
               {{test::imir(0)}, 4},
               {{test::irot(1), test::imir(0)}, 5},
               {{test::irot(3), test::imir(0)}, 7},
               {{test::irot(1), test::imir(1)}, 7},
               {{test::irot(3), test::imir(1)}, 5},
               {{test::imir(1), test::irot(1)}, 5}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    HEIFFile file = plain;
    for (const std::string& box : c.boxes) file.with(box);
    expectPicture(file, test::slopes(), c.orientation);
  }
}

TEST_F(HEICDecoderTest, CropsBeforeItTurns) {
  HEIFFile file = test::encodeHEIC(test::slopes());
  file.with(test::clap(60, 32, -4, 6)).with(test::irot(3));  // centre 2 to the left and 3 down
  const auto at = test::slopes().at;
  expectPicture(file, {60, 32, [&](std::int64_t x, std::int64_t y) { return at(x + 16, y + 19); }}, 6);
}

TEST_F(HEICDecoderTest, KeepsAlpha) {
  Picture picture = test::slopes();
  picture.at = [at = picture.at](std::int64_t x, std::int64_t y) {
    DeepPixel pixel = at(x, y);
    pixel[3] = static_cast<std::uint16_t>(65535 - pixel[1] / 2);
    return pixel;
  };
  HEIFFile file = test::encodeHEIC(picture, true);
  for (HEIFFile::Item& item : file.items) item.properties.push_back(test::irot(3));  // both, as cameras do
  const auto source = open(file);
  EXPECT_TRUE(source->properties(0).hasAlpha);
  EXPECT_EQ(source->count(), 1U);
  expectPicture(file, picture, 6, 10);

  // The same samples, now said to be premultiplied: half transparent, half red at the middle of the lower
  // edge.
  EXPECT_NEAR(stored(*converted(file)).row(47)[0], 63, 8);
  file.references.push_back({"prem", file.primary, {file.references.front().from}});
  EXPECT_NEAR(stored(*converted(file)).row(47)[0], 126, 8);
  EXPECT_NEAR(stored(*open(file)).row(63)[47 * 4], 126, 8);
}

TEST_F(HEICDecoderTest, WritesDeepImagesWithSixteenBits) {
  // Grey in steps of a quarter of an 8-bit step.
  const Picture picture = {1024, 64, [](std::int64_t x, std::int64_t) {
                             const auto grey = static_cast<std::uint16_t>(x * 65535 / 1023);
                             return DeepPixel{grey, grey, grey, 0xffff};
                           }};
  const HEIFFile file = test::encodeHEIC(picture, false, 16, {"-b", "10"});
  EXPECT_EQ(open(file)->properties(0).bitsPerSample, 16);
  const auto result = converted(file);
  EXPECT_EQ(result->properties(0).bitsPerSample, 16);
  const auto rows = result->deepRows(0);
  std::vector<std::uint16_t> row(1024 * 4);
  for (int y = 0; y < 64; ++y) {
    rows->read(row);
    for (std::size_t i = 0; i < row.size(); ++i) {  // to half a step of 8 bits
      ASSERT_NEAR(row[i], picture.at(static_cast<std::int64_t>(i / 4), y)[i % 4], 128);
    }
    EXPECT_EQ(row.front(), 0);
    EXPECT_EQ(row[1023 * 4], 65535);
  }
}

TEST_F(HEICDecoderTest, CarriesColoursIntoThePNG) {
  const HEIFFile plain = test::encodeHEIC(test::slopes());
  const std::string camera = color::makeRGBProfile("Camera", color::displayP3, 1.8);
  const std::string sRGB = "sRGB IEC61966-2.1";
  const struct {
    std::vector<std::string> boxes;
    std::string name;
  } cases[] = {{{}, sRGB},
               {{test::nclx(1, 13, 6)}, sRGB},
               {{test::nclx(2, 2, 6)}, sRGB},    // unspecified
               {{test::nclx(1, 1, 6)}, sRGB},    // video
               {{test::nclx(77, 99, 6)}, sRGB},  // reserved
               {{test::icc("abc")}, sRGB},
               {{test::nclx(12, 13, 6)}, "Display P3"},
               {{test::nclx(9, 14, 6)}, "ITU-R BT.2020"},
               {{test::nclx(1, 4, 6)}, "ITU-R BT.709, gamma 2.2"},
               {{test::icc(camera)}, "Camera"},
               {{test::icc(camera), test::nclx(1, 13, 6)}, "Camera"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    HEIFFile file = plain;
    for (const std::string& box : c.boxes) file.with(box);
    EXPECT_EQ(profileOf(*open(file)), c.name);
    EXPECT_EQ(profileOf(*converted(file)), c.name);
    expectPicture(file, test::slopes(), 1);  // numbers stay, only their meaning is told
  }

  // Flaws that libpng refuses do not keep a photo from being converted.
  std::string oddLength = camera + "ab", oddWhite = camera, oddIntent = camera;
  oddLength.replace(0, 4, test::number(oddLength.size(), 4));
  oddWhite[70] ^= 1;
  oddIntent[67] = 9;
  for (const std::string& flawed : {oddLength, oddWhite, oddIntent}) {
    HEIFFile file = plain;
    EXPECT_EQ(profileOf(*converted(file.with(test::icc(flawed)))), "Camera");
  }

  // Without a colour box the stream has its say.
  HEIFFile stream = test::encodeHEIC(test::slopes(), false, 8,
                                     {"-p", "x265:colorprim=bt2020", "-p", "x265:transfer=bt470m", "-p",
                                      "x265:sar=3", "-p", "x265:scaling-list=default"});
  EXPECT_EQ(profileOf(*converted(stream)), "ITU-R BT.2020, gamma 2.2");
  EXPECT_EQ(profileOf(*converted(stream.with(test::icc(camera)))), "Camera");
}

TEST_F(HEICDecoderTest, BringsHighDynamicRangeToStandardRange) {
  // Signals of PQ for 20, 203 and 1000 cd/m², and of HLG for its reference white (ITU-R BT.2408, table 1).
  const double dark = 255 * (1.055 * std::pow(20.0 / 203, 1 / 2.4) - 0.055);
  const struct {
    int transfer;
    double signal;
    double shown, tolerance;
  } cases[] = {{16, 0.3570, dark, 4},   {16, 0.5807, 227.5, 12.5}, {16, 0.7518, 254, 1}, {16, 0.9, 255, 0},
               {18, 0.75, 227.5, 12.5}, {18, 1.0, 254, 1},         {18, 0.0, 1, 1}};
  for (const auto& c : cases) {
    const auto value = static_cast<std::uint16_t>(c.signal * 65535);
    const DeepPixel grey = {value, value, value, 0xffff};
    HEIFFile file = test::encodeHEIC({64, 64, [&](auto, auto) { return grey; }}, false, 16, {"-b", "10"});
    file.with(test::nclx(9, c.transfer, 6));
    const auto result = converted(file);
    SCOPED_TRACE(testing::Message() << "transfer " << c.transfer << ", signal " << c.signal);
    EXPECT_EQ(profileOf(*result), "Display P3");
    EXPECT_EQ(result->properties(0).bitsPerSample, 16);
    const Bitmap bitmap = stored(*result);
    for (const std::size_t component : {0, 1, 2})
      EXPECT_NEAR(bitmap.row(32)[128 + component], c.shown, c.tolerance);
    EXPECT_EQ(stored(*open(file)).pixels, bitmap.pixels) << "views show what the PNG shows";
  }
}

TEST_F(HEICDecoderTest, ReadsGridsAsPhonesWriteThem) {
  const Picture whole = test::slopes(320, 180);
  std::vector<HEIFFile> tiles;
  for (int tile = 0; tile < 6; ++tile) {  // the last column and row reach beyond the picture
    tiles.push_back(test::encodeHEIC({128, 128, [&, tile](std::int64_t x, std::int64_t y) {
                                        return whole.at(std::min<std::int64_t>(x + tile % 3 * 128, 319),
                                                        std::min<std::int64_t>(y + tile / 3 * 128, 179));
                                      }}));
  }
  HEIFFile file = test::grid(tiles, 2, 3, 320, 180);
  file.with(test::icc(color::makeRGBProfile("Display P3", color::displayP3))).with(test::irot(3));
  HEIFFile::Item thumbnail = tiles.front().items.front();
  thumbnail.id = 50;
  file.items.push_back(thumbnail);
  file.references.push_back({"thmb", 50, {file.primary}});

  const auto source = open(file);
  EXPECT_EQ(source->container(), Container::heic);
  EXPECT_EQ(source->count(), 1U);
  EXPECT_EQ(profileOf(*source), "Display P3");
  expectPicture(file, whole, 6, 10);
  EXPECT_EQ(views::thumbnail(*source, 0, 100, true).height, 100);

  // A second picture, and the first is no longer the one that is shown first.
  file.references.pop_back();
  file.primary = 50;
  const auto two = open(file);
  EXPECT_EQ(two->count(), 2U);
  EXPECT_EQ(two->properties(two->primaryIndex()).width, 128);
}

TEST(HEIFBoxesTest, TellsTheContainerByItsBrands) {
  const auto type = [](const std::string& brands, const std::string& box = "ftyp") {
    std::string payload = brands.substr(0, 4) + test::number(0, 4) + brands.substr(4);
    return heif::container(test::box(box, payload) + "more");
  };
  for (const char* brands : {"heic", "heixmif1", "mif1miafheic"}) EXPECT_EQ(type(brands), Container::heic);
  for (const char* brands : {"mif1miafavif", "avifmif1heic"}) EXPECT_EQ(type(brands), Container::avif);
  for (const char* brands : {"mif1", "jpegmif1"}) EXPECT_EQ(type(brands), Container::heif);
  EXPECT_FALSE(type("isommp42"));
  EXPECT_FALSE(type("heic", "free"));
  EXPECT_FALSE(
      heif::container(std::string_view("\0\0\0\x10"
                                       "ftyphe",
                                       10)));
  EXPECT_FALSE(heif::container(""));
}

}  // namespace
}  // namespace tidewell
