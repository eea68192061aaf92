// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/JPEGMetadata.h"

#include <gtest/gtest.h>

#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/HEIFFile.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::number;
using test::TemporaryFolder;

const std::string startOfImage = "\xFF\xD8";
const std::string scan = std::string("\xFF\xDA\0\x02", 4) + "data\xFF\xD9";

std::string segment(char marker, const std::string& body) {
  return std::string("\xFF") + marker + number(body.size() + 2, 2) + body;
}

/// An MPF index with one entry, as a segment.
struct Index {
  std::uint64_t images = 2, type = 4, count = 1, tag = 0xB001;  ///< NumberOfImages is one LONG
  std::uint64_t offset = 8, entries = 1, magic = 42;
  bool bigEndian = true;
  std::string mark = bigEndian ? "MM" : "II";
};
std::string app2(const Index& index) {
  const auto n = [&](std::uint64_t value, int bytes) {
    const std::string text = number(value, bytes);
    return index.bigEndian ? text : std::string(text.rbegin(), text.rend());
  };
  return segment('\xE2', std::string("MPF\0", 4) + index.mark + n(index.magic, 2) + n(index.offset, 4) +
                             n(index.entries, 2) + n(index.tag, 2) + n(index.type, 2) + n(index.count, 4) +
                             n(index.images, 4));
}

TEST(JPEGMetadata, FindsMultiplePictures) {
  const TemporaryFolder folder;
  const auto several = [&](const std::string& data) {
    return JPEGMetadata::hasMultiplePictures(folder.write("a.jpg", data));
  };
  const std::string two = app2({});
  const std::string other = segment('\xE2', std::string("ICC_PROFILE\0\x01\x01profile", 21));
  const std::string shortIndex = segment('\xE2', std::string("MPF\0", 4) + std::string(11, 'x'));
  constexpr std::size_t mebibyte = 1 << 20;
  const struct {
    const char* name;
    std::string segments;
    bool expected;
  } cases[] = {
      {"big-endian, two", two, true},
      {"little-endian, three", app2({.images = 3, .bigEndian = false}), true},
      {"one", app2({.images = 1}) + two, false},
      {"a SHORT is passed over", app2({.type = 3}) + two, true},
      {"so is a count of two", app2({.count = 2}), false},
      {"and another tag", app2({.tag = 0xB002}) + two, true},
      {"other segments, fill bytes", other + segment('\xE1', "Exif") + "\xFF\xFF" + two, true},
      {"restart markers have no length", "\xFF\xD3\xFF\x01" + two, true},
      {"mixed byte-order mark ends it", app2({.mark = "IM"}) + two, false},
      {"wrong magic ends it", app2({.magic = 43}) + two, false},
      {"directory past the end", app2({.offset = 0x1000}) + two, false},
      {"offset that overflows", app2({.offset = 0xFFFFFFFF}), false},
      {"more entries than fit", app2({.entries = 2}), false},
      {"too short to be an index", shortIndex + two, true},
      {"after the scan", scan.substr(0, 4) + two, false},
      {"length of one", std::string("\xFF\xE2\0\x01", 4) + two, false},
      {"within the first MiB", std::string(mebibyte - 2 - two.size() - 3, '\xFF') + two, true},
      {"beyond the first MiB", std::string(mebibyte, '\xFF') + two, false},
  };
  for (const auto& c : cases) EXPECT_EQ(several(startOfImage + c.segments + scan), c.expected) << c.name;
  EXPECT_FALSE(several(startOfImage + two.substr(0, two.size() - 1))) << "length runs past the end";
  // Wherever the first read ends in it.
  constexpr std::size_t firstRead = 0x10000, before = firstRead - 100;
  const std::string padding = segment('\xE1', std::string(before - 6, 'x'));
  for (std::size_t fill = 90 - two.size(); fill < 110; ++fill) {
    const std::string start = startOfImage + padding + std::string(fill, '\xFF');
    EXPECT_TRUE(several(start + two + scan)) << fill;
    EXPECT_FALSE(several(start + scan + two)) << fill;
    EXPECT_FALSE(several(start)) << fill;
  }
  EXPECT_FALSE(several("GIF89a" + two));
  EXPECT_FALSE(several(""));
  EXPECT_FALSE(JPEGMetadata::hasMultiplePictures(folder / "missing.jpg"));
}

TEST(JPEGMetadata, RecognisesFineQuantisation) {
  const TemporaryFolder folder;
  const auto table = [](int id, int step, int bytes = 1) {
    std::string text(1, static_cast<char>(bytes == 2 ? 16 | id : id));
    for (int i = 0; i < 64; ++i) text += number(static_cast<std::uint64_t>(step), bytes);
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
      {"all twos, 16 bits", dqt(table(0, 2, 2)), true},
      {"just above two", dqt(mixed), false},
      {"all zero", dqt(table(0, 0)), false},
      {"table 1 first", dqt(table(1, 9) + table(0, 1)), true},
      {"in a later segment", dqt(table(1, 9)) + dqt(table(0, 1)), true},
      {"only the first counts", dqt(table(0, 9)) + dqt(table(0, 1)), false},
      {"fill bytes", "\xFF" + dqt(table(0, 1)), true},
      {"precision of two", dqt("\x20" + table(0, 1)), false},
      {"cut table", dqt(table(0, 1).substr(0, 60)), false},
      {"none", "", false},
      {"behind the scan", scan.substr(0, 4) + dqt(table(0, 1)), false},
  };
  for (const auto& c : cases) {
    const URL url = folder.write("a.jpg", startOfImage + c.data + scan);
    EXPECT_EQ(ImageFacts::hasFineJPEGQuantization(url), c.expected) << c.name;
  }
  for (const int quality : {75, 99}) {
    test::writeJPEGFile(folder / "real.jpg", test::photoRaster(16, 16), {.quality = quality});
    EXPECT_EQ(ImageFacts::hasFineJPEGQuantization(folder / "real.jpg"), quality == 99);
  }
}

TEST(JPEGMetadata, WritesTheOrientation) {
  const TemporaryFolder folder;
  const URL url = folder / "a.jpg";
  const test::Raster raster = test::photoRaster(24, 16);
  test::writeJPEGFile(url, raster);
  const std::string plain = files::read(url);
  test::writeJPEGFile(url, raster, {.exif = test::exifWithOrientation(6, true)});
  const std::string turned = files::read(url);
  for (const auto& [data, orientation] : {std::pair(plain, 1), {turned, 6}}) {
    JPEGMetadata::preserveOrientation(orientation, folder.write("a.jpg", data));
    EXPECT_EQ(files::read(url), data);
  }
  for (const int orientation : {1, 3, 8}) {
    JPEGMetadata::preserveOrientation(orientation, folder.write("a.jpg", turned));
    // The new block right after the start, the rest as it was without the old block.
    EXPECT_EQ(files::read(url),
              startOfImage + segment('\xE1', test::exifWithOrientation(orientation)) + plain.substr(2));
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
