#include "CompressionKit/codecs/HEICDecoder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>

#include <cmath>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/StandardRange.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "support/HEICSample.h"

namespace tidewell {
namespace {

using test::DeepPixel;
using test::HEIFFile;
using test::Picture;

/// Turned by a quarter against the clock.
Picture turned(const Picture& picture) {
  return {picture.height, picture.width,
          [=](std::int64_t x, std::int64_t y) { return picture.at(picture.width - 1 - y, x); }};
}
Picture mirrored(const Picture& picture, int axis) {
  return {picture.width, picture.height, [=](std::int64_t x, std::int64_t y) {
            return axis == 1 ? picture.at(picture.width - 1 - x, y) : picture.at(x, picture.height - 1 - y);
          }};
}

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

Bitmap stored(ImageSource& source, std::size_t index = 0) {
  const ImageProperties properties = source.properties(index);
  return views::crop(source, index, 0, 0, properties.width, properties.height);
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

  const test::TemporaryFolder folder;
  const URL heic = folder / "photo.heic";
  const URL png = folder / "photo.png";
};

TEST_F(HEICDecoderTest, TurnsAndMirroringsBecomeOneOrientation) {
  const Picture picture = test::slopes();
  const HEIFFile plain = test::encodeHEIC(picture);
  struct Case {
    int quarters;
    int axis;  ///< -1: not mirrored
    int orientation;
    bool mirroredFirst = false;
  };
  for (const Case& c :
       {Case{0, -1, 1}, Case{1, -1, 8}, Case{2, -1, 3}, Case{3, -1, 6}, Case{0, 1, 2}, Case{0, 0, 4},
        Case{1, 0, 5}, Case{3, 0, 7}, Case{1, 1, 7}, Case{3, 1, 5}, Case{1, 1, 5, true}}) {
    HEIFFile file = plain;
    Picture upright = picture;
    const auto mirror = [&] {
      if (c.axis < 0) return;
      file.with(test::imir(c.axis));
      upright = mirrored(upright, c.axis);
    };
    if (c.mirroredFirst) mirror();
    if (c.quarters > 0) file.with(test::irot(c.quarters));
    for (int quarter = 0; quarter < c.quarters; ++quarter) upright = turned(upright);
    if (!c.mirroredFirst) mirror();

    SCOPED_TRACE(testing::Message() << c.quarters << " quarters, axis " << c.axis
                                    << (c.mirroredFirst ? " first" : ""));
    const auto source = open(file);
    EXPECT_EQ(source->properties(0).orientation, c.orientation);
    EXPECT_LE(deviation(stored(*source), picture), 8);
    EXPECT_LE(deviation(views::thumbnail(*source, 0, 1000, true), upright), 8);
    const auto result = converted(file);
    EXPECT_EQ(result->properties(0).orientation.value_or(1), 1);
    EXPECT_LE(deviation(stored(*result), upright), 8);
  }
}

TEST_F(HEICDecoderTest, CropsBeforeItTurns) {
  const Picture picture = test::slopes();
  HEIFFile file = test::encodeHEIC(picture);
  file.with(test::clap(60, 32, -4, 6)).with(test::irot(3));  // centre 2 to the left and 3 down
  const Picture part = {60, 32, [&](std::int64_t x, std::int64_t y) { return picture.at(x + 16, y + 19); }};
  const auto source = open(file);
  EXPECT_EQ(source->properties(0).width, 60);
  EXPECT_LE(deviation(stored(*source), part), 8);
  EXPECT_LE(deviation(stored(*converted(file)), turned(turned(turned(part)))), 8);
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
  EXPECT_LE(deviation(stored(*source), picture), 10);
  const auto result = converted(file);
  EXPECT_TRUE(result->properties(0).hasAlpha);
  EXPECT_LE(deviation(stored(*result), turned(turned(turned(picture)))), 10);

  // The same samples, now said to be premultiplied: half transparent, half red at the middle of the lower
  // edge.
  file.references.push_back({"prem", file.primary, {file.references.front().from}});
  EXPECT_NEAR(stored(*result).row(47)[0], 63, 8);
  EXPECT_NEAR(stored(*converted(file)).row(47)[0], 126, 8);
  EXPECT_NEAR(stored(*open(file)).row(63)[47 * 4], 126, 8);
}

/// Samples of a 16-bit RGB PNG.
std::vector<std::uint16_t> samples16(const URL& png) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(png.path().c_str(), "rb"), &std::fclose);
  png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(reader);
  png_init_io(reader, file.get());
  png_read_png(reader, info, PNG_TRANSFORM_SWAP_ENDIAN, nullptr);
  std::vector<std::uint16_t> samples;
  if (png_get_bit_depth(reader, info) == 16) {
    for (png_uint_32 y = 0; y < png_get_image_height(reader, info); ++y) {
      const auto* row = reinterpret_cast<const std::uint16_t*>(png_get_rows(reader, info)[y]);
      samples.insert(samples.end(), row, row + png_get_rowbytes(reader, info) / 2);
    }
  }
  png_destroy_read_struct(&reader, &info, nullptr);
  return samples;
}

TEST_F(HEICDecoderTest, WritesDeepImagesWithSixteenBits) {
  // Grey in steps of a quarter of an 8-bit step.
  const Picture picture = {1024, 64, [](std::int64_t x, std::int64_t) {
                             const auto grey = static_cast<std::uint16_t>(x * 65535 / 1023);
                             return DeepPixel{grey, grey, grey, 0xffff};
                           }};
  const HEIFFile file = test::encodeHEIC(picture, false, 16, {"-b", "10"});
  EXPECT_EQ(open(file)->properties(0).bitsPerSample, 16);
  EXPECT_EQ(converted(file)->properties(0).bitsPerSample, 16);
  const auto samples = samples16(png);
  ASSERT_EQ(samples.size(), 1024U * 64 * 3);
  int wrong = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const int expected = picture.at(static_cast<std::int64_t>(i / 3 % 1024), 0)[0];
    wrong += std::abs(samples[i] - expected) > 128 ? 1 : 0;  // half a step of 8 bits
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(samples.front(), 0);
  EXPECT_EQ(samples.back(), 65535);
}

TEST_F(HEICDecoderTest, CarriesColoursIntoThePNG) {
  const HEIFFile plain = test::encodeHEIC(test::slopes());
  const std::string camera = color::makeRGBProfile("Camera", color::displayP3, 1.8);
  const std::string sRGB = "sRGB IEC61966-2.1";
  struct Case {
    const char* what;
    std::string box;
    std::string name;
  };
  for (const Case& c :
       {Case{"no colour box", "", sRGB}, Case{"sRGB", test::nclx(1, 13, 6), sRGB},
        Case{"unspecified", test::nclx(2, 2, 6), sRGB}, Case{"video", test::nclx(1, 1, 6), sRGB},
        Case{"reserved", test::nclx(77, 99, 6), sRGB}, Case{"not a profile", test::icc("abc"), sRGB},
        Case{"P3", test::nclx(12, 13, 6), "Display P3"},
        Case{"BT.2020", test::nclx(9, 14, 6), "ITU-R BT.2020"},
        Case{"gamma", test::nclx(1, 4, 6), "ITU-R BT.709, gamma 2.2"},
        Case{"embedded", test::icc(camera), "Camera"}}) {
    SCOPED_TRACE(c.what);
    HEIFFile file = plain;
    if (!c.box.empty()) file.with(c.box);
    const auto name = [](const ImageProperties& properties) {
      return properties.profileName ? properties.profileName : properties.colorSpaceName;
    };
    const ImageProperties before = open(file)->properties(0);
    const auto result = converted(file);
    EXPECT_EQ(name(before), c.name);
    EXPECT_EQ(name(result->properties(0)), c.name);
    EXPECT_EQ(result->properties(0).color, before.color);
    EXPECT_LE(deviation(stored(*result), test::slopes()), 8) << "numbers stay, only their meaning is told";
  }
  HEIFFile both = plain;
  both.with(test::icc(camera)).with(test::nclx(1, 13, 6));
  EXPECT_EQ(converted(both)->properties(0).profileName, "Camera");

  // Flaws that libpng refuses do not keep a photo from being converted.
  std::string oddLength = camera + "ab", oddWhite = camera, oddIntent = camera;
  oddLength.replace(0, 4, test::number(oddLength.size(), 4));
  oddWhite[70] ^= 1;
  oddIntent[67] = 9;
  for (const std::string& flawed : {oddLength, oddWhite, oddIntent}) {
    HEIFFile file = plain;
    EXPECT_EQ(converted(file.with(test::icc(flawed)))->properties(0).profileName, "Camera");
  }

  // Without a colour box the stream has its say.
  HEIFFile stream = test::encodeHEIC(test::slopes(), false, 8,
                                     {"-p", "x265:colorprim=bt2020", "-p", "x265:transfer=bt470m", "-p",
                                      "x265:sar=3", "-p", "x265:scaling-list=default"});
  EXPECT_EQ(converted(stream)->properties(0).profileName, "ITU-R BT.2020, gamma 2.2");
  EXPECT_EQ(converted(stream.with(test::icc(camera)))->properties(0).profileName, "Camera");
}

TEST_F(HEICDecoderTest, BringsHighDynamicRangeToStandardRange) {
  const auto grey = [](double signal) {
    return Picture{64, 64, [=](std::int64_t, std::int64_t) {
                     const auto value = static_cast<std::uint16_t>(signal * 65535);
                     return DeepPixel{value, value, value, 0xffff};
                   }};
  };
  // Signals of PQ for 20, 203 and 1000 cd/m², and of HLG for its reference white (ITU-R BT.2408, table 1).
  struct Case {
    int transfer;
    double signal;
    int low, high;
  };
  const auto dark = static_cast<int>(255 * (1.055 * std::pow(20.0 / 203, 1 / 2.4) - 0.055));
  for (const Case& c :
       {Case{16, 0.3570, dark - 4, dark + 4}, Case{16, 0.5807, 215, 240}, Case{16, 0.7518, 253, 255},
        Case{16, 0.9, 255, 255}, Case{18, 0.75, 215, 240}, Case{18, 1.0, 253, 255}, Case{18, 0.0, 0, 2}}) {
    HEIFFile file = test::encodeHEIC(grey(c.signal), false, 16, {"-b", "10"});
    file.with(test::nclx(9, c.transfer, 6));
    const auto result = converted(file);
    SCOPED_TRACE(testing::Message() << "transfer " << c.transfer << ", signal " << c.signal);
    EXPECT_EQ(result->properties(0).profileName, "Display P3");
    EXPECT_EQ(result->properties(0).bitsPerSample, 16);
    const Bitmap bitmap = stored(*result);
    for (std::size_t component = 0; component < 3; ++component) {
      EXPECT_GE(bitmap.row(32)[128 + component], c.low);
      EXPECT_LE(bitmap.row(32)[128 + component], c.high);
    }
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
  const ImageProperties properties = source->properties(0);
  EXPECT_EQ(properties.width, 320);
  EXPECT_EQ(properties.height, 180);
  EXPECT_EQ(properties.orientation, 6);
  EXPECT_EQ(properties.profileName, "Display P3");
  EXPECT_LE(deviation(stored(*source), whole), 10);
  EXPECT_LE(deviation(stored(*converted(file)), turned(turned(turned(whole)))), 10);
  EXPECT_LE(
      std::max(views::thumbnail(*source, 0, 100, true).width, views::thumbnail(*source, 0, 100, true).height),
      100);

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
  EXPECT_EQ(type("heic"), Container::heic);
  EXPECT_EQ(type("heixmif1"), Container::heic);
  EXPECT_EQ(type("mif1miafheic"), Container::heic);
  EXPECT_EQ(type("mif1miafavif"), Container::avif);
  EXPECT_EQ(type("avifmif1heic"), Container::avif);
  EXPECT_EQ(type("mif1"), Container::heif);
  EXPECT_EQ(type("jpegmif1"), Container::heif);
  EXPECT_FALSE(type("isommp42"));
  EXPECT_FALSE(type("heic", "free"));
  EXPECT_FALSE(
      heif::container("\0\0\0\x10"
                      "ftyphe"));
  EXPECT_FALSE(heif::container(""));
}

}  // namespace
}  // namespace tidewell
