#include "CompressionKit/image/JPEGMetadata.h"

#include <gtest/gtest.h>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::TemporaryFolder;

constexpr std::size_t mebibyte = 1 << 20;
const std::string startOfImage = "\xFF\xD8";
const std::string scan = std::string("\xFF\xDA\0\x02", 4) + "data\xFF\xD9";

std::string segment(char marker, const std::string& body) {
  const std::size_t length = body.size() + 2;
  return std::string("\xFF") + marker + static_cast<char>(length >> 8) + static_cast<char>(length & 0xFF) +
         body;
}

/// An MPF index with one NumberOfImages entry of the given fields.
std::string index(bool bigEndian, std::uint32_t images, std::uint32_t type = 4, std::uint32_t count = 1,
                  std::uint32_t tag = 0xB001, std::uint32_t offset = 8, std::uint32_t entries = 1) {
  const auto n = [&](std::uint32_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) {
      text += static_cast<char>(value >> 8 * (bigEndian ? bytes - 1 - i : i) & 0xFF);
    }
    return text;
  };
  return std::string("MPF\0", 4) + (bigEndian ? "MM" : "II") + n(42, 2) + n(offset, 4) + n(entries, 2) +
         n(tag, 2) + n(type, 2) + n(count, 4) + n(images, 4);
}

std::string app2(const std::string& body) {
  return segment('\xE2', body);
}

TEST(JPEGMetadata, FindsMultiplePictures) {
  const TemporaryFolder folder;
  const std::string two = app2(index(true, 2));
  std::string badMark = index(true, 2);
  badMark[4] = 'I';
  std::string badMagic = index(true, 2);
  badMagic[7] = 43;
  const std::string other = app2(std::string("ICC_PROFILE\0\x01\x01profile", 21));
  const struct {
    const char* name;
    std::string data;
    bool expected;
  } cases[] = {
      {"big-endian, two", startOfImage + two + scan, true},
      {"little-endian, three", startOfImage + app2(index(false, 3)) + scan, true},
      {"one", startOfImage + app2(index(true, 1)) + two + scan, false},
      {"a SHORT is passed over", startOfImage + app2(index(true, 2, 3)) + two + scan, true},
      {"so is a count of two", startOfImage + app2(index(true, 2, 4, 2)) + scan, false},
      {"and another tag", startOfImage + app2(index(true, 2, 4, 1, 0xB002)) + two + scan, true},
      {"other segments, fill bytes", startOfImage + other + segment('\xE1', "Exif") + "\xFF\xFF" + two + scan,
       true},
      {"restart markers have no length", startOfImage + "\xFF\xD3\xFF\x01" + two + scan, true},
      {"mixed byte-order mark ends it", startOfImage + app2(badMark) + two + scan, false},
      {"wrong magic ends it", startOfImage + app2(badMagic) + two + scan, false},
      {"directory past the end", startOfImage + app2(index(true, 2, 4, 1, 0xB001, 0x1000)) + two + scan,
       false},
      {"offset that overflows", startOfImage + app2(index(true, 2, 4, 1, 0xB001, 0xFFFFFFFF)) + scan, false},
      {"more entries than fit", startOfImage + app2(index(true, 2, 4, 1, 0xB001, 8, 2)) + scan, false},
      {"too short to be an index",
       startOfImage + app2(std::string("MPF\0", 4) + std::string(11, 'x')) + two + scan, true},
      {"after the scan", startOfImage + scan + two, false},
      {"length runs past the end", startOfImage + two.substr(0, two.size() - 1), false},
      {"length of one", startOfImage + std::string("\xFF\xE2\0\x01", 4) + two + scan, false},
      {"within the first MiB", startOfImage + std::string(mebibyte - 2 - two.size() - 3, '\xFF') + two + scan,
       true},
      {"beyond the first MiB", startOfImage + std::string(mebibyte, '\xFF') + two + scan, false},
      {"no JPEG", "GIF89a" + two, false},
      {"empty", "", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(JPEGMetadata::hasMultiplePictures(folder.write("a.jpg", c.data)), c.expected) << c.name;
  }
  EXPECT_FALSE(JPEGMetadata::hasMultiplePictures(folder / "missing.jpg"));
}

TEST(JPEGMetadata, RecognisesFineQuantisation) {
  const TemporaryFolder folder;
  const auto table = [](int id, char step, bool wide = false) {
    std::string text(1, static_cast<char>((wide ? 16 : 0) | id));
    for (int i = 0; i < 64; ++i) text += wide ? std::string{'\0', step} : std::string{step};
    return text;
  };
  const auto dqt = [](const std::string& body) { return segment('\xDB', body); };
  std::string mixed = table(0, 2);
  mixed[1] = 3;
  const struct {
    const char* name;
    std::string data;
    bool expected;
  } cases[] = {
      {"all ones", dqt(table(0, 1)), true},
      {"all threes", dqt(table(0, 3)), false},
      {"all twos, 16 bits", dqt(table(0, 2, true)), true},
      {"just above two", dqt(mixed), false},
      {"all zero", dqt(table(0, 0)), false},
      {"table 1 first", dqt(table(1, 9) + table(0, 1)), true},
      {"in a later segment", dqt(table(1, 9)) + dqt(table(0, 1)), true},
      {"only the first counts", dqt(table(0, 9)) + dqt(table(0, 1)), false},
      {"fill bytes", "\xFF" + dqt(table(0, 1)), true},
      {"precision of two", dqt("\x20" + table(0, 1)), false},
      {"cut table", dqt(table(0, 1).substr(0, 60)), false},
      {"none", "", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ImageFacts::hasFineJPEGQuantization(folder.write("a.jpg", startOfImage + c.data + scan)),
              c.expected)
        << c.name;
  }
  EXPECT_FALSE(
      ImageFacts::hasFineJPEGQuantization(folder.write("a.jpg", startOfImage + scan + dqt(table(0, 1)))));
  for (const int quality : {75, 99}) {
    test::JPEGFileOptions options;
    options.quality = quality;
    test::writeJPEGFile(folder / "real.jpg", test::photoRaster(16, 16), options);
    EXPECT_EQ(ImageFacts::hasFineJPEGQuantization(folder / "real.jpg"), quality == 99);
  }
}

TEST(JPEGMetadata, WritesTheOrientation) {
  const TemporaryFolder folder;
  const URL url = folder / "a.jpg";
  const test::Raster raster = test::photoRaster(24, 16);
  test::JPEGFileOptions options;
  test::writeJPEGFile(url, raster, options);
  const std::string plain = files::read(url);
  JPEGMetadata::preserveOrientation(1, url);
  EXPECT_EQ(files::read(url), plain);

  options.exif = test::exifWithOrientation(6, true);
  test::writeJPEGFile(url, raster, options);
  const std::string turned = files::read(url);
  JPEGMetadata::preserveOrientation(6, url);
  EXPECT_EQ(files::read(url), turned);

  for (const int orientation : {1, 3, 8}) {
    folder.write("a.jpg", turned);
    JPEGMetadata::preserveOrientation(orientation, url);
    // The new block right after the start, the rest as it was without the old block.
    const std::string expected = plain.substr(0, 2) +
                                 std::string(
                                     "\xFF\xE1\0\x22"
                                     "Exif\0\0II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0",
                                     28) +
                                 static_cast<char>(orientation) + std::string(7, '\0') + plain.substr(2);
    EXPECT_EQ(files::read(url), expected);
    EXPECT_EQ(ImageSource::open(url)->properties(0).orientation, orientation);
  }
  for (const int wrong : {0, 9, -1}) {
    EXPECT_EQ(test::caseOf([&] { JPEGMetadata::preserveOrientation(wrong, folder / "missing.jpg"); }),
              CompressionError::Case::validationFailed);
  }
  test::writePNGFile(folder / "b.jpg", raster);
  EXPECT_THROW(JPEGMetadata::preserveOrientation(6, folder / "b.jpg"), CompressionError);
}

}  // namespace
}  // namespace tidewell
