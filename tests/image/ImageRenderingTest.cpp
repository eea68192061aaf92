// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ImageRendering.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <thread>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/HEICSample.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::caseOf;
using test::textOf;
using enum CompressionError::Case;

class ImageRenderingTest : public testing::Test {
 protected:
  const test::TemporaryFolder folder;
  const URL png = folder / "picture.png";
};

TEST_F(ImageRenderingTest, ShowsImagesUprightAndBounded) {
  const test::Raster photo = test::photoRaster(400, 300);
  const std::string profile = color::makeRGBProfile("Camera", color::displayP3);
  const URL jpeg = folder / "turned.jpg";
  test::writeJPEGFile(jpeg, photo, {.exif = test::exifWithOrientation(6), .icc = profile});
  test::writePNGFile(png, photo);

  const Bitmap full = ImageRendering::comparisonImage(jpeg);
  EXPECT_EQ(std::pair(full.width, full.height), std::pair(std::int64_t{300}, std::int64_t{400}));
  EXPECT_EQ(full.color.icc, profile);
  // The top left of the upright picture is the bottom left of the stored one.
  const auto stored = test::decoded(jpeg);
  for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(full.row(0)[c], stored[299 * 400 * 4 + c]);

  for (const auto& [maximum, width, height] :
       {std::tuple<std::int64_t, std::int64_t, std::int64_t>{200, 200, 150}, {1, 1, 1}, {4000, 400, 300}}) {
    const Bitmap plain = ImageRendering::thumbnail(png, maximum);
    const Bitmap turned = ImageRendering::thumbnail(jpeg, maximum);
    EXPECT_EQ(std::pair(plain.width, plain.height), std::pair(width, height));
    EXPECT_EQ(std::pair(turned.width, turned.height), std::pair(height, width));
  }
}

TEST_F(ImageRenderingTest, ShowsThePrimaryImageOfHEICFiles) {
  TIDEWELL_NEEDS_HEIF_ENCODER();
  test::HEIFFile file = test::encodeHEIC(test::slopes(64, 64));
  test::HEIFFile::Item second = test::encodeHEIC(test::slopes(128, 64)).items.front();
  second.id = 2;
  second.properties.push_back(test::irot(1));
  file.items.push_back(second);
  file.primary = 2;
  file.write(folder / "two.heic");
  const Bitmap full = ImageRendering::comparisonImage(folder / "two.heic");
  EXPECT_EQ(std::pair(full.width, full.height), std::pair(std::int64_t{64}, std::int64_t{128}));
}

TEST_F(ImageRenderingTest, RefusesWhatItCannotShow) {
  test::writePNGFile(png, test::photoRaster(8, 8));
  const URL remote = *URL::parse("https://example.org/picture.png");
  EXPECT_EQ(caseOf([&] { ImageRendering::comparisonImage(remote); }), fileOperation);
  EXPECT_EQ(caseOf([&] { ImageRendering::thumbnail(remote, 10); }), invalidImage);
  EXPECT_EQ(caseOf([&] { ImageRendering::thumbnail(png, 0); }), invalidImage);
  const std::string data = files::read(png);
  // 60000 x 60000 pixels, announced by a few bytes.
  const std::string header = test::pngChunk("IHDR", {"\0\0\xEA\x60\0\0\xEA\x60\x08\x02\0\0\0", 13});
  for (const URL& bad : {folder / "missing.png", folder.write("text.png", "no image"),
                         folder.write("cut.png", data.substr(0, 60)),
                         folder.write("huge.png", data.substr(0, 8) + header + data.substr(33))}) {
    EXPECT_EQ(caseOf([&] { ImageRendering::comparisonImage(bad); }), invalidImage) << bad.path();
  }
}

TEST_F(ImageRenderingTest, ComparesOnlyFilesThatAreWhatTheyWere) {
  const URL other = folder / "other.png";
  test::writePNGFile(png, test::photoRaster(30, 20));
  test::writePNGFile(other, test::photoRaster(30, 20, 2));
  const std::optional<std::string> before = hash(png), after = hash(other), unknown;
  const auto compare = [](auto&&... arguments) {
    return ImageRendering::comparisonImages(arguments...).get();
  };
  const ImageRendering::ComparisonImages images = compare(png, other, before, after);
  EXPECT_EQ(images.original.pixels, test::decoded(png));
  EXPECT_EQ(images.compressed.pixels, test::decoded(other));
  EXPECT_NO_THROW(compare(png, other, unknown, unknown));

  const std::string edited = "图片文件已被修改，无法对比";
  EXPECT_EQ(textOf([&] { compare(png, other, after, after); }), edited);
  EXPECT_EQ(textOf([&] { compare(png, other, unknown, before); }), edited);
  const URL text = folder.write("text.png", "no image");
  EXPECT_EQ(textOf([&] { compare(text, other, before, after); }), edited) << "hashes come before decoding";
  EXPECT_EQ(caseOf([&] { compare(text, other, unknown, after); }), invalidImage);
  EXPECT_THROW(compare(folder / "missing.png", other, unknown, after), FileError);
}

/// The compressed file is a pipe until it has been hashed for the first time: while the comparison waits
/// there, the first hash of the original is taken and nothing is decoded yet. Then a real file takes the
/// pipe's place.
TEST_F(ImageRenderingTest, NoticesFilesThatChangeWhileTheyAreDecoded) {
  const std::string changed = "图片文件在载入过程中被修改，请重新打开对比";
  for (const bool changesOriginal : {true, false}) {
    test::writePNGFile(png, test::photoRaster(30, 20));
    const std::string data = files::read(png);
    const URL pipe = folder / "pipe.png";
    ASSERT_EQ(mkfifo(pipe.path().c_str(), 0600), 0);
    auto comparison = ImageRendering::comparisonImages(png, pipe, hash(png), hash(std::string_view(data)));
    {
      const Descriptor writer(::open(pipe.path().c_str(), O_WRONLY | O_CLOEXEC));  // waits for the reader
      const URL real = folder.write("real.png", changesOriginal ? data : data + "more");
      ASSERT_EQ(std::rename(real.path().c_str(), pipe.path().c_str()), 0);
      if (changesOriginal) folder.write("picture.png", data + "more");
      files::writeFully(writer.get(), data.data(), data.size(), pipe);
    }
    EXPECT_EQ(textOf([&] { comparison.get(); }), changed) << (changesOriginal ? "original" : "compressed");
    files::removeItem(pipe);
  }
}

TEST_F(ImageRenderingTest, SharesOneQueueOfTwo) {
  EXPECT_EQ(ImageRendering::workers().name(), "com.vantor.tidewell.image-reading");
  EXPECT_EQ(ImageRendering::workers().maximumConcurrentOperations(), 2U);
  const auto reader = ImageRendering::read(OperationQueue::Priority::normal, std::this_thread::get_id).get();
  EXPECT_NE(reader, std::this_thread::get_id());
}

}  // namespace
}  // namespace tidewell
