// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/PNGMetadata.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/GIFPalette.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::pngChunk;
using test::TemporaryFolder;

const std::string signature = "\x89PNG\r\n\x1A\n", end = pngChunk("IEND", "");
const std::string start = signature + pngChunk("IHDR", std::string("\0\0\0\x01\0\0\0\x01\x08\x02\0\0\0", 13));

using enum CompressionError::Case;

TEST(PNGMetadata, ValidatesTheChunkList) {
  const TemporaryFolder folder;
  const std::string data = pngChunk("IDAT", "x"), good = start + data + end;
  std::string badSum = good, overlong = good;
  badSum[badSum.size() - 14] ^= 1;
  overlong[8 + 25 + 2] = 1;  // IDAT claims 64 KiB more
  const struct {
    const char* name;
    std::string file;
    std::optional<CompressionError::Case> failure;
  } cases[] = {
      {"good", good, {}},
      {"bad sum", badSum, {}},
      {"data behind the end", good + "more", {}},
      {"acTL behind the data", start + data + pngChunk("acTL", "12345678") + end, fileOperation},
      {"fdAT", start + pngChunk("fdAT", "1") + end, fileOperation},
      {"fcTL", start + pngChunk("fcTL", "") + data + end, fileOperation},
      {"no header", signature + data + end, invalidImage},
      {"short header", signature + pngChunk("IHDR", "123456789012") + data + end, invalidImage},
      {"no end", start + data, invalidImage},
      {"end with data", start + data + pngChunk("IEND", "1234"), invalidImage},
      {"no image data", start + end, invalidImage},
      {"chunk past the end", overlong, invalidImage},
      {"cut header", start.substr(0, 18), invalidImage},
      {"wrong signature", "\x89PNX" + good.substr(4), invalidImage},
      {"empty", "", invalidImage},
  };
  for (const auto& c : cases) {
    const URL url = folder.write("a.png", c.file);
    EXPECT_EQ(test::caseOf([&] { PNGMetadata::validateStatic(url); }), c.failure) << c.name;
  }
  for (const URL& unreadable : {folder / "missing.png", folder.url()}) {
    EXPECT_THROW(PNGMetadata::validateStatic(unreadable), FileError);
  }
}

TEST(PNGMetadata, WritesTheOrientation) {
  const TemporaryFolder folder;
  const URL url = folder / "a.png";
  test::writePNGFile(url, test::photoRaster(9, 7));
  const std::string plain = files::read(url);
  const auto exif = [](int orientation) { return test::exifWithOrientation(orientation).substr(6); };
  const std::string front = test::withChunk(plain, "eXIf", test::exifWithOrientation(6, true).substr(6));
  // An old block behind the pixels goes, and so does what follows the end.
  const std::string turned = plain.substr(0, plain.size() - 12) + pngChunk("eXIf", exif(3)) + end + "more";
  const struct {
    std::string before;
    int orientation;
    std::string after;
  } cases[] = {{plain, 1, plain},
               {turned, 1, turned},  // never touches a file
               {turned, 3, turned},
               {front, 6, front},
               {plain, 6, test::withChunk(plain, "eXIf", exif(6))},
               {turned, 8, test::withChunk(plain, "eXIf", exif(8))}};
  for (const auto& c : cases) {
    PNGMetadata::preserveOrientation(c.orientation, folder.write("a.png", c.before));
    EXPECT_EQ(files::read(url), c.after) << c.orientation;
  }
  for (const int wrong : {0, 9}) {
    EXPECT_EQ(test::caseOf([&] { PNGMetadata::preserveOrientation(wrong, folder / "missing.png"); }),
              validationFailed);
  }
}

TEST(GIFPalette, WritesColourMaps) {
  const TemporaryFolder folder;
  const auto palette = [](std::size_t bytes) {
    std::string data;
    for (std::size_t i = 0; i < bytes; ++i) data += static_cast<char>(i * 5);
    return start + pngChunk("PLTE", data);
  };
  const URL map = folder / "map.txt";
  GIFPalette::colourMap(folder.write("a.png", palette(6) + pngChunk("PLTE", "xyz")), map);
  EXPECT_EQ(files::read(map), "0 5 10\n15 20 25\n");
  GIFPalette::colourMap(folder.write("a.png", palette(768)), map);
  EXPECT_EQ(std::ranges::count(files::read(map), '\n'), 256);
  std::string overlong = signature + pngChunk("tEXt", "abc") + pngChunk("PLTE", "abc");
  overlong[8 + 2] = 1;
  for (const std::string& bad : {palette(0), palette(770), palette(771), palette(10), start + end, overlong,
                                 std::string("short"), std::string(40, 'x')}) {
    EXPECT_EQ(test::caseOf([&] { GIFPalette::colourMap(folder.write("a.png", bad), map); }), invalidImage);
  }
}

TEST(GIFPalette, SamplesEvenlySpacedFrames) {
  const TemporaryFolder folder;
  const auto frame = [&](int number, int width, int height) {
    const URL url = folder / ("frame-" + std::to_string(number) + ".png");
    const test::Pixel shade{static_cast<std::uint8_t>(number * 2 + 20), 0, 0, 255};
    test::writePNGFile(url, test::Raster(width, height, [&](int, int) { return shade; }));
    return url;
  };
  const struct {
    int frames, width, height, cellWidth, cellHeight;
    std::vector<int> sampled;
  } cases[] = {{1, 1280, 720, 640, 360, {0}},
               {2, 320, 200, 320, 200, {0, 1}},
               {10, 30, 20, 30, 20, {0, 1, 2, 3, 5, 6, 7, 9}},
               {100, 3, 2, 3, 2, {0, 14, 28, 42, 56, 70, 84, 99}},
               {1, 2000, 1, 640, 1, {0}}};
  for (const auto& c : cases) {
    std::vector<URL> frames;
    for (int i = 0; i < c.frames; ++i) frames.push_back(frame(i, c.width, c.height));
    EXPECT_EQ(GIFPalette::sampledFrames(frames.size()),
              std::vector<std::size_t>(c.sampled.begin(), c.sampled.end()));
    const URL sample = GIFPalette::sample(frames, folder.url());
    EXPECT_EQ(sample, folder / "gif-colour-sample.png");
    const auto pixels = test::decoded(sample);
    const std::size_t cells = c.sampled.size(),
                      cellBytes = static_cast<std::size_t>(c.cellWidth * c.cellHeight) * 4;
    EXPECT_EQ(ImageSource::open(sample)->properties(0).width, c.cellWidth);
    ASSERT_EQ(pixels.size(), cells * cellBytes);
    for (std::size_t cell = 0; cell < cells; ++cell) {  // cell 0 stands at the bottom
      EXPECT_EQ(pixels[(cells - 1 - cell) * cellBytes], c.sampled[cell] * 2 + 20);
    }
  }
  // A later frame of another shape is brought to the first one's cell.
  const URL mixed = GIFPalette::sample({frame(0, 2000, 1), frame(1, 7, 40)}, folder.url());
  EXPECT_EQ(ImageSource::open(mixed)->properties(0).width, 640);
  EXPECT_EQ(ImageSource::open(mixed)->properties(0).height, 2);
  EXPECT_THROW(GIFPalette::sample({}, folder.url()), CompressionError);
  EXPECT_THROW(GIFPalette::sample({folder / "missing.png"}, folder.url()), CompressionError);
}

}  // namespace
}  // namespace tidewell
