// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

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

class ImageSourceTest : public testing::Test {
 protected:
  ImageSourceTest() {
    const test::Raster photo = test::photoRaster(65, 33);
    test::writePNGFile(samples[0], photo);
    test::writePNGFile(samples[1], photo, {.alpha = true, .interlaced = true});
    test::writeJPEGFile(samples[2], photo);
    test::writeJPEGFile(samples[3], photo, {.progressive = true});
    test::writeGIFFile(samples[4], {.frames = {{.indexes = {1}}, {.indexes = {1}}}});
    if (!test::hasHEIFEncoder()) return;
    samples.push_back(folder / "f.heic");
    test::encodeHEIC(test::slopes()).write(samples.back());
  }

  const test::TemporaryFolder folder;
  /// One file of each format.
  std::vector<URL> samples = {folder / "a.png", folder / "b.png", folder / "c.jpg", folder / "d.jpg",
                              folder / "e.gif"};
};

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

template <typename Sample>
std::vector<Sample> samplesOf(auto& rows) {
  const auto width = static_cast<std::size_t>(rows.width()) * 4;
  std::vector<Sample> samples(width * static_cast<std::size_t>(rows.height()));
  for (std::size_t at = 0; at < samples.size(); at += width) rows.read(std::span(samples).subspan(at, width));
  return samples;
}

TEST_F(ImageSourceTest, OpensNamesDescriptorsAndBytes) {
  for (const URL& url : samples) {
    SCOPED_TRACE(url.path());
    const std::string data = files::read(url);
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
    const ImageInput file(files::openForReading(url));
    const auto named = open(url);
    const auto expected = samplesOf<std::uint8_t>(*open(url)->rows(0));
    // Two readers of one descriptor do not disturb each other.
    const auto first = open(file), second = open(file);
    const auto memory = open(ImageInput(bytes));
    for (ImageSource* source : {first.get(), second.get(), memory.get()}) {
      EXPECT_EQ(source->container(), named->container());
      EXPECT_EQ(source->count(), named->count());
      source->verify(0);
      EXPECT_EQ(samplesOf<std::uint8_t>(*source->rows(0)), expected);
    }
    EXPECT_EQ(ImageSource::containerOf(ImageInput(bytes.first(32))), named->container());
    // Nothing is read beyond the end of the bytes.
    const auto cut = bytes.first(bytes.size() / 3);
    EXPECT_THROW(open(ImageInput(cut))->verify(0), ImageDecodeError);
  }
  EXPECT_THROW(ImageSource::open(ImageInput(std::span<const std::uint8_t>())), ImageDecodeError);
  EXPECT_THROW(ImageSource::open(ImageInput(folder.url())), FileError);
  EXPECT_FALSE(ImageSource::containerOf(ImageInput(std::span<const std::uint8_t>())));
  EXPECT_THROW(ImageSource::containerOf(ImageInput(folder.url())), FileError);
}

TEST_F(ImageSourceTest, DeliversStraightSamplesAtTheDepthOfTheFile) {
  const auto deep = [](const URL& url) { return samplesOf<std::uint16_t>(*open(url)->deepRows(0)); };
  // Samples whose low byte matters, under an alpha that would hide it.
  const std::string row("\x12\x34\x00\x01\xFF\xFE\x00\x03", 8);
  EXPECT_EQ(deep(folder.write("deep.png", test::pngOfOneRow(1, 16, 6, row))),
            (std::vector<std::uint16_t>{0x1234, 1, 0xFFFE, 3}));
  EXPECT_EQ(deep(folder.write("soft.png", test::pngOfOneRow(1, 8, 6, "\x12\x34\x56\x03"))),
            (std::vector<std::uint16_t>{0x1212, 0x3434, 0x5656, 0x0303}));
  // Opaque images say the same at both depths.
  for (const URL& url : samples) {
    std::vector<std::uint16_t> expected;
    for (const std::uint8_t sample : samplesOf<std::uint8_t>(*open(url)->rows(0)))
      expected.push_back(static_cast<std::uint16_t>(sample * 257));
    EXPECT_EQ(deep(url), expected) << url.path();
  }
}

TEST_F(ImageSourceTest, EndsWhenAskedToStop) {
  for (const URL& url : samples) {
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
