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
  EXPECT_EQ(full.width, 300);
  EXPECT_EQ(full.height, 400);
  EXPECT_EQ(full.color.icc, profile);
  // The top left of the upright picture is the bottom left of the stored one.
  const auto stored = test::decoded(jpeg);
  for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(full.row(0)[c], stored[299 * 400 * 4 + c]);

  struct Size {
    std::int64_t maximum, width, height;
  };
  for (const Size& size : {Size{200, 200, 150}, Size{128, 128, 96}, Size{1, 1, 1}, Size{4000, 400, 300}}) {
    const Bitmap plain = ImageRendering::thumbnail(png, size.maximum);
    const Bitmap turned = ImageRendering::thumbnail(jpeg, size.maximum);
    EXPECT_EQ(std::pair(plain.width, plain.height), std::pair(size.width, size.height));
    EXPECT_EQ(std::pair(turned.width, turned.height), std::pair(size.height, size.width));
  }
  // Reduced by a whole number, a pixel is the mean of those it stands for.
  const Bitmap half = ImageRendering::thumbnail(png, 200);
  const auto mean =
      (photo.at(20, 10)[1] + photo.at(21, 10)[1] + photo.at(20, 11)[1] + photo.at(21, 11)[1]) / 4.0;
  EXPECT_NEAR(half.row(5)[10 * 4 + 1], mean, 1);
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
  EXPECT_NEAR(full.row(0)[0], 255, 8);  // red grows to the right, which is now the top
  EXPECT_NEAR(full.row(127)[0], 0, 8);
  EXPECT_EQ(ImageRendering::thumbnail(folder / "two.heic", 32).height, 32);
}

TEST_F(ImageRenderingTest, RefusesWhatItCannotShow) {
  test::writePNGFile(png, test::photoRaster(8, 8));
  const URL remote = *URL::parse("https://example.org/picture.png");
  EXPECT_EQ(caseOf([&] { ImageRendering::comparisonImage(remote); }), fileOperation);
  EXPECT_EQ(caseOf([&] { ImageRendering::thumbnail(remote, 10); }), invalidImage);
  EXPECT_EQ(caseOf([&] { ImageRendering::thumbnail(png, 0); }), invalidImage);
  EXPECT_EQ(caseOf([&] { ImageRendering::comparisonImage(folder / "missing.png"); }), invalidImage);
  EXPECT_EQ(caseOf([&] { ImageRendering::thumbnail(folder.write("text.png", "no image"), 10); }),
            invalidImage);
  const std::string data = files::read(png);
  EXPECT_EQ(caseOf([&] { ImageRendering::comparisonImage(folder.write("cut.png", data.substr(0, 60))); }),
            invalidImage);
  // 60000 x 60000 pixels, announced by a few bytes.
  const std::string header = test::pngChunk("IHDR", {"\0\0\xEA\x60\0\0\xEA\x60\x08\x02\0\0\0", 13});
  const URL huge = folder.write("huge.png", data.substr(0, 8) + header + data.substr(33));
  EXPECT_EQ(caseOf([&] { ImageRendering::comparisonImage(huge); }), invalidImage);
}

TEST_F(ImageRenderingTest, ComparesOnlyFilesThatAreWhatTheyWere) {
  const URL other = folder / "other.png";
  test::writePNGFile(png, test::photoRaster(30, 20));
  test::writePNGFile(other, test::photoRaster(30, 20, 2));
  const std::string before = hash(png), after = hash(other);
  const auto compare = [](const URL& a, const URL& b, std::optional<std::string> x,
                          std::optional<std::string> y) {
    return ImageRendering::comparisonImages(a, b, x, y).get();
  };
  const ImageRendering::ComparisonImages images = compare(png, other, before, after);
  EXPECT_EQ(images.original.pixels, test::decoded(png));
  EXPECT_EQ(images.compressed.pixels, test::decoded(other));
  EXPECT_NO_THROW(compare(png, other, std::nullopt, std::nullopt));

  const std::string edited = "图片文件已被修改，无法对比";
  EXPECT_EQ(textOf([&] { compare(png, other, after, after); }), edited);
  EXPECT_EQ(textOf([&] { compare(png, other, std::nullopt, before); }), edited);
  const URL text = folder.write("text.png", "no image");
  EXPECT_EQ(textOf([&] { compare(text, other, before, after); }), edited) << "hashes come before decoding";
  EXPECT_EQ(caseOf([&] { compare(text, other, std::nullopt, after); }), invalidImage);
  EXPECT_THROW(compare(folder / "missing.png", other, std::nullopt, after), FileError);
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
  EXPECT_EQ(&ImageRendering::workers(), &ImageRendering::workers());
  EXPECT_EQ(ImageRendering::workers().name(), "com.vantor.tidewell.image-reading");
  EXPECT_EQ(ImageRendering::workers().maximumConcurrentOperations(), 2U);
  const auto caller = std::this_thread::get_id();
  EXPECT_NE(
      ImageRendering::read(OperationQueue::Priority::normal, [] { return std::this_thread::get_id(); }).get(),
      caller);
}

}  // namespace
}  // namespace tidewell
