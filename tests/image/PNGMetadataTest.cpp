#include "CompressionKit/image/PNGMetadata.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/GIFPalette.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::pngChunk;
using test::TemporaryFolder;

const std::string signature = "\x89PNG\r\n\x1A\n";
const std::string header = pngChunk("IHDR", std::string("\0\0\0\x01\0\0\0\x01\x08\x02\0\0\0", 13));

using Failure = std::optional<CompressionError::Case>;
using enum CompressionError::Case;

TEST(PNGMetadata, ValidatesTheChunkList) {
  const TemporaryFolder folder;
  const std::string data = pngChunk("IDAT", "x"), end = pngChunk("IEND", "");
  std::string badSum = signature + header + data + end;
  badSum[badSum.size() - 14] ^= 1;
  std::string overlong = signature + header + data + end;
  overlong[8 + 25 + 2] = 1;  // IDAT claims 64 KiB more
  const struct {
    const char* name;
    std::string file;
    Failure failure;
  } cases[] = {
      {"good", signature + header + data + end, {}},
      {"bad sum", badSum, {}},
      {"data behind the end", signature + header + data + end + "more", {}},
      {"acTL behind the data", signature + header + data + pngChunk("acTL", "12345678") + end, fileOperation},
      {"fdAT", signature + header + pngChunk("fdAT", "1") + end, fileOperation},
      {"fcTL", signature + header + pngChunk("fcTL", "") + data + end, fileOperation},
      {"no header", signature + data + end, invalidImage},
      {"short header", signature + pngChunk("IHDR", "123456789012") + data + end, invalidImage},
      {"no end", signature + header + data, invalidImage},
      {"end with data", signature + header + data + pngChunk("IEND", "1234"), invalidImage},
      {"no image data", signature + header + end, invalidImage},
      {"chunk past the end", overlong, invalidImage},
      {"cut header", signature + header.substr(0, 10), invalidImage},
      {"wrong signature", "\x89PNX\r\n\x1A\n" + header + data + end, invalidImage},
      {"empty", "", invalidImage},
  };
  for (const auto& c : cases) {
    const URL url = folder.write("a.png", c.file);
    EXPECT_EQ(test::caseOf([&] { PNGMetadata::validateStatic(url); }), c.failure) << c.name;
  }
  EXPECT_THROW(PNGMetadata::validateStatic(folder / "missing.png"), FileError);
}

TEST(PNGMetadata, WritesTheOrientation) {
  const TemporaryFolder folder;
  const URL url = folder / "a.png";
  test::writePNGFile(url, test::photoRaster(9, 7));
  const std::string plain = files::read(url);
  const auto exif = [](int orientation) {
    return std::string("II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0", 18) + static_cast<char>(orientation) +
           std::string(7, '\0');
  };
  PNGMetadata::preserveOrientation(1, url);
  EXPECT_EQ(files::read(url), plain);
  PNGMetadata::preserveOrientation(6, url);
  EXPECT_EQ(files::read(url), test::withChunk(plain, "eXIf", exif(6)));
  EXPECT_EQ(ImageFacts::inspect(url).orientation, 6);
  PNGMetadata::preserveOrientation(1, url);  // never touches a file
  EXPECT_EQ(ImageFacts::inspect(url).orientation, 6);
  // An old block behind the pixels goes, and so does what follows the end.
  const std::string end = pngChunk("IEND", "");
  folder.write("a.png",
               plain.substr(0, plain.size() - end.size()) + pngChunk("eXIf", exif(3)) + end + "more");
  PNGMetadata::preserveOrientation(8, url);
  EXPECT_EQ(files::read(url), test::withChunk(plain, "eXIf", exif(8)));

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
    return signature + header + pngChunk("PLTE", data);
  };
  const URL map = folder / "map.txt";
  GIFPalette::colourMap(folder.write("a.png", palette(6) + pngChunk("PLTE", "xyz")), map);
  EXPECT_EQ(files::read(map), "0 5 10\n15 20 25\n");
  GIFPalette::colourMap(folder.write("a.png", palette(768)), map);
  EXPECT_EQ(std::ranges::count(files::read(map), '\n'), 256);
  std::string overlong = signature + pngChunk("tEXt", "abc") + pngChunk("PLTE", "abc");
  overlong[8 + 2] = 1;
  for (const std::string& bad :
       {palette(0), palette(770), palette(771), palette(10), signature + header + header, overlong,
        std::string("short"), std::string(40, 'x')}) {
    EXPECT_EQ(test::caseOf([&] { GIFPalette::colourMap(folder.write("a.png", bad), map); }), invalidImage);
  }
}

TEST(GIFPalette, SamplesEvenlySpacedFrames) {
  const TemporaryFolder folder;
  const struct {
    int frames, width, height, cellWidth, cellHeight;
    std::vector<int> sampled;
  } cases[] = {
      {1, 1280, 720, 640, 360, {0}},
      {2, 320, 200, 320, 200, {0, 1}},
      {10, 30, 20, 30, 20, {0, 1, 2, 3, 5, 6, 7, 9}},
      {100, 3, 2, 3, 2, {0, 14, 28, 42, 56, 70, 84, 99}},
      {1, 2000, 1, 640, 1, {0}},
  };
  for (const auto& c : cases) {
    std::vector<URL> frames;
    for (int i = 0; i < c.frames; ++i) {
      frames.push_back(folder / ("frame-" + std::to_string(i) + ".png"));
      const auto shade = static_cast<std::uint8_t>(i * 2 + 20);
      test::writePNGFile(frames.back(), test::Raster(c.width, c.height, [&](int, int) {
                           return test::Pixel{shade, 0, 0, 255};
                         }));
    }
    const URL sample = GIFPalette::sample(frames, folder.url());
    EXPECT_EQ(sample.lastPathComponent(), "gif-colour-sample.png");
    const auto properties = ImageSource::open(sample)->properties(0);
    const auto cells = static_cast<std::int64_t>(c.sampled.size());
    ASSERT_EQ(properties.width, c.cellWidth);
    ASSERT_EQ(properties.height, c.cellHeight * cells);
    const auto pixels = test::decoded(sample);
    for (std::int64_t cell = 0; cell < cells; ++cell) {  // cell 0 stands at the bottom
      const auto row = static_cast<std::size_t>((cells - 1 - cell) * c.cellHeight);
      EXPECT_EQ(pixels[row * static_cast<std::size_t>(c.cellWidth) * 4],
                c.sampled[static_cast<std::size_t>(cell)] * 2 + 20);
    }
  }
  // A later frame of another shape is brought to the first one's cell.
  test::writePNGFile(folder / "frame-1.png", test::photoRaster(7, 40));
  const auto properties =
      ImageSource::open(GIFPalette::sample({folder / "frame-0.png", folder / "frame-1.png"}, folder.url()))
          ->properties(0);
  EXPECT_EQ(properties.width, 640);
  EXPECT_EQ(properties.height, 2);
  EXPECT_THROW(GIFPalette::sample({}, folder.url()), CompressionError);
  EXPECT_THROW(GIFPalette::sample({folder / "missing.png"}, folder.url()), CompressionError);
}

}  // namespace
}  // namespace tidewell
