#include "CompressionKit/codecs/ImageSource.h"

#include <gtest/gtest.h>

#include "CompressionKit/codecs/HEICDecoder.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "support/HEICSample.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

/// One file of each format.
std::vector<URL> samples(const test::TemporaryFolder& folder) {
  std::vector<URL> urls = {folder / "a.png", folder / "b.png", folder / "c.jpg", folder / "d.jpg",
                           folder / "e.gif"};
  const test::Raster photo = test::photoRaster(65, 33);
  test::writePNGFile(urls[0], photo);
  test::writePNGFile(urls[1], photo, {.alpha = true, .interlaced = true});
  test::writeJPEGFile(urls[2], photo);
  test::writeJPEGFile(urls[3], photo, {.progressive = true});
  test::GIFFile gif;
  test::GIFFrame frame;
  frame.indexes = {1};
  gif.frames = {frame, frame};
  test::writeGIFFile(urls[4], gif);
  if (test::hasHEIFEncoder()) {
    urls.push_back(folder / "f.heic");
    test::encodeHEIC(test::slopes()).write(urls.back());
  }
  return urls;
}

/// A HEIC file, too, by what decodes it elsewhere.
std::unique_ptr<ImageSource> open(const ImageInput& input, const StopToken& stop = {}) {
  auto source = ImageSource::open(input, stop);
  if (source->container() != Container::heic) return source;
  EXPECT_THROW(source->verify(0), ImageDecodeError);
  EXPECT_THROW(source->properties(0), ImageDecodeError);
  return std::make_unique<HEICSource>(input, stop);
}
std::unique_ptr<ImageSource> open(const URL& url, const StopToken& stop = {}) {
  return open(ImageInput(url), stop);
}

std::vector<std::uint8_t> rowsOf(ImageSource& source) {
  const auto rows = source.rows(0);
  const auto width = static_cast<std::size_t>(rows->width()) * 4;
  std::vector<std::uint8_t> pixels(width * static_cast<std::size_t>(rows->height()));
  for (std::size_t at = 0; at < pixels.size(); at += width) rows->read(std::span(pixels).subspan(at, width));
  return pixels;
}

TEST(ImageSource, OpensNamesDescriptorsAndBytes) {
  const test::TemporaryFolder folder;
  for (const URL& url : samples(folder)) {
    SCOPED_TRACE(url.path());
    const std::string data = files::read(url);
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
    const ImageInput file(files::openForReading(url));
    const auto named = open(url);
    const auto expected = rowsOf(*named);
    // Two readers of one descriptor do not disturb each other.
    const auto first = open(file), second = open(file);
    const auto memory = open(ImageInput(bytes));
    for (ImageSource* source : {first.get(), second.get(), memory.get()}) {
      EXPECT_EQ(source->container(), named->container());
      EXPECT_EQ(source->count(), named->count());
      EXPECT_EQ(source->properties(0).width, named->properties(0).width);
      source->verify(0);
      EXPECT_EQ(rowsOf(*source), expected);
    }
    // Nothing is read beyond the end of the bytes.
    const auto cut = bytes.first(bytes.size() / 3);
    EXPECT_THROW(open(ImageInput(cut))->verify(0), ImageDecodeError);
  }
  EXPECT_THROW(ImageSource::open(ImageInput(std::span<const std::uint8_t>())), ImageDecodeError);
  EXPECT_THROW(ImageSource::open(ImageInput(folder.url())), FileError);
}

TEST(ImageSource, DeliversStraightSamplesAtTheDepthOfTheFile) {
  const test::TemporaryFolder folder;
  // Samples whose low byte matters, under an alpha that would hide it.
  const std::string row("\x12\x34\x00\x01\xFF\xFE\x00\x03", 8);
  const URL deep = folder.write("deep.png", test::pngOfOneRow(1, 16, 6, row));
  const URL soft = folder.write("soft.png", test::pngOfOneRow(1, 8, 6, "\x12\x34\x56\x03"));
  const std::vector<std::uint16_t> narrow = {0x1212, 0x3434, 0x5656, 0x0303};
  for (const auto& [url, expected] :
       {std::pair{deep, std::vector<std::uint16_t>{0x1234, 1, 0xFFFE, 3}}, std::pair{soft, narrow}}) {
    const auto source = open(url);
    std::vector<std::uint16_t> samples(4);
    source->deepRows(0)->read(samples);
    EXPECT_EQ(samples, expected);
  }
  // Opaque images say the same at both depths.
  for (const URL& url : samples(folder)) {
    const auto source = open(url);
    const auto expected = rowsOf(*source);
    const auto rows = source->deepRows(0);
    std::vector<std::uint16_t> row16(static_cast<std::size_t>(rows->width()) * 4);
    rows->read(row16);
    for (std::size_t i = 0; i < row16.size(); ++i) ASSERT_EQ(row16[i], expected[i] * 257) << url.path();
  }
}

TEST(ImageSource, EndsWhenAskedToStop) {
  const test::TemporaryFolder folder;
  for (const URL& url : samples(folder)) {
    SCOPED_TRACE(url.path());
    StopSource stop;
    const auto source = open(url, stop.token());
    const auto rows = source->rows(0);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(rows->width()) * 4);
    rows->read(row);
    stop.requestStop();
    EXPECT_THROW(rows->read(row), Interrupted);
    EXPECT_THROW(open(url, stop.token()), Interrupted);
    if (source->container() == Container::heic) continue;  // has been decoded by then
    EXPECT_THROW(source->verify(0), Interrupted);
    EXPECT_THROW(source->rows(0)->read(row), Interrupted);
  }
}

}  // namespace
}  // namespace tidewell
