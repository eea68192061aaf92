// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ImageFacts.h"

#include <gtest/gtest.h>

#include <cmath>

#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/Script.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using test::Pixel;
using test::Raster;
using test::TemporaryFolder;

TEST(ImageKind, IsToldByTheExtension) {
  const std::pair<const char*, const char*> cases[] = {
      {"photo.JPG", "jpeg"}, {"photo.jpeg", "jpeg"}, {"a.PnG", "png"}, {"x.gif", "gif"}, {"x.heif", "heic"},
      {"x.heic", "heic"},    {"x.webp", ""},         {"x.tiff", ""},   {"photo", ""},    {".jpg", ""}};
  for (const auto& [name, expected] : cases) {
    const auto kind = ImageKind::from(URL::file(std::string("/a/") + name));
    EXPECT_EQ(kind ? kind->rawValue() : "", expected) << name;
    EXPECT_EQ(kind, ImageKind::fromRawValue(expected));
  }
  EXPECT_FALSE(ImageKind::fromRawValue("JPEG"));
}

ImageFacts facts(ImageKind kind, std::optional<std::string> profile) {
  ImageFacts facts;
  facts.kind = kind;
  facts.width = 20;
  facts.height = 10;
  facts.frameCount = 1;
  facts.profileName = std::move(profile);
  return facts;
}

TEST(ImageFacts, JudgesProfiles) {
  const std::optional<std::string> none;
  const struct {
    ImageKind kind;
    std::optional<std::string> original, candidate;
    bool allowed, strictly;
  } cases[] = {
      {ImageKind::jpeg, none, none, true, true},
      {ImageKind::jpeg, "sRGB IEC61966-2.1", "kCGColorSpaceSRGB", true, true},
      {ImageKind::jpeg, "Display P3", "kCGColorSpaceDisplayP3", true, true},
      {ImageKind::jpeg, "Adobe RGB", "ADOBE RGB", false, false},
      {ImageKind::jpeg, "Adobe RGB", "sRGB", false, false},
      {ImageKind::png, "Adobe RGB", "sRGB", true, false},
      {ImageKind::png, "Adobe RGB", "Display P3", false, false},
      {ImageKind::png, none, "s RGB", true, false},
      {ImageKind::jpeg, none, "sRGB", false, false},
      {ImageKind::png, none, "Adobe RGB", false, false},
      {ImageKind::png, "sRGB", none, false, false},
      // What says nothing of its colours is sRGB, but no conversion from a profile.
      {ImageKind::png, "sRGB built-in", "Untagged sRGB", true, true},
      {ImageKind::png, "Display P3", "Untagged sRGB", false, false},
      {ImageKind::png, "RGB gamma 1.8", "Untagged sRGB", true, false},
      {ImageKind::gif, "Adobe RGB", none, true, true},
  };
  for (const auto& c : cases) {
    const ImageFacts original = facts(c.kind, c.original), candidate = facts(c.kind, c.candidate);
    const std::string name = c.original.value_or("none") + " -> " + c.candidate.value_or("none");
    EXPECT_EQ(original.compatible(candidate, true), c.allowed) << name;
    EXPECT_EQ(original.compatible(candidate, false), c.strictly) << name;
  }
}

TEST(ImageFacts, JudgesEverythingElse) {
  const ImageFacts png = facts(ImageKind::png, "sRGB");
  ImageFacts gif = facts(ImageKind::gif, "sRGB");
  gif.gifFrameDelays = {0.1};
  const struct {
    const ImageFacts& original;
    void (*change)(ImageFacts& candidate);
    bool compatible;
  } cases[] = {{png, [](auto& f) { f.width = 5; }, false},
               {png, [](auto& f) { f.height = 5; }, false},
               {png, [](auto& f) { f.frameCount = 2; }, false},
               {png, [](auto& f) { f.kind = ImageKind::jpeg; }, false},
               {png, [](auto& f) { f.orientation = 6; }, false},
               {png, [](auto& f) { f.hasAlpha = true; }, true},
               {gif, [](auto& f) { f.orientation = 3; }, true},
               {gif, [](auto& f) { f.gifFrameDelays = {0.1000005}; }, true},
               {gif, [](auto& f) { f.gifFrameDelays = {0.10001}; }, false},
               {gif,
                [](auto& f) {
                  f.gifFrameDelays = {0.1, 0.1};
                },
                false},
               {gif, [](auto& f) { f.gifLoopCount = 0; }, false}};
  for (const auto& c : cases) {
    ImageFacts candidate = c.original;
    c.change(candidate);
    for (const bool allowSRGBConversion : {true, false})
      EXPECT_EQ(c.original.compatible(candidate, allowSRGBConversion), c.compatible) << &c - cases;
  }
}

TEST(ImageFacts, InspectsAndRefuses) {
  const TemporaryFolder folder;
  test::writeJPEGFile(folder / "a.JPG", test::photoRaster(20, 10), {.exif = test::exifWithOrientation(6)});
  ImageFacts expected = facts(ImageKind::jpeg, "sRGB IEC61966-2.1");
  expected.orientation = 6;
  EXPECT_EQ(ImageFacts::inspect(folder / "a.JPG"), expected);

  const std::string photo = files::read(folder / "a.JPG");
  using enum CompressionError::Case;
  const struct {
    const char* name;
    CompressionError::Case failure;
    std::string data;
  } cases[] = {
      {"jpg.gif", formatMismatch, photo},
      {"jpg.png", invalidImage, photo},
      {"cut.jpg", invalidImage, photo.substr(0, photo.size() / 2)},
      {"good.webp", invalidImage, photo},
      {"empty.heic", invalidImage, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(test::caseOf([&] { ImageFacts::inspect(folder.write(c.name, c.data)); }), c.failure) << c.name;
  }
  EXPECT_THROW(ImageFacts::inspect(folder / "missing.jpg"), CompressionError);
}

// --- Comparisons -------------------------------------------------------------------------------------------

class Comparison : public testing::Test {
 protected:
  URL write(const char* name, const Raster& raster) const {
    test::writePNGFile(folder_ / name, raster, {.alpha = true});
    return folder_ / name;
  }
  TemporaryFolder folder_;
};

TEST_F(Comparison, FindsOneDifferentByteInAnyBand) {
  // 1,048 rows fill a band of 1000 columns: 3000 rows are three bands.
  const auto image = [&](const char* name, int oddRow) {
    return write(name, Raster(1000, 3000, [=](int x, int y) {
                   return Pixel{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 3,
                                static_cast<std::uint8_t>(y == oddRow && x == 999 ? 254 : 255)};
                 }));
  };
  const URL original = image("a.png", -1);
  EXPECT_TRUE(ImageFacts::pixelsEqual(original, image("b.png", -1)));
  for (const int row : {0, 1047, 1048, 2999}) {
    const URL candidate = image("b.png", row);
    EXPECT_FALSE(ImageFacts::pixelsEqual(original, candidate)) << row;
    EXPECT_FALSE(ImageFacts::alphaDeviationWithin(original, candidate, 0)) << row;
    EXPECT_TRUE(ImageFacts::alphaDeviationWithin(original, candidate, 1)) << row;
  }
  EXPECT_FALSE(ImageFacts::pixelsEqual(original, folder_ / "missing.png"));
  EXPECT_FALSE(ImageFacts::quantizedAlphaWithin(folder_.write("x.png", "no image"), original));
}

TEST_F(Comparison, BearsVeryLongRows) {
  const auto image = [&](const char* name, char last) {
    std::string row(250'000, '\0');  // 2,000,000 pixels of one bit
    row.back() = last;
    return folder_.write(name, test::pngOfOneRow(2'000'000, 1, 0, row));
  };
  const URL original = image("a.png", 0);
  EXPECT_EQ(ImageFacts::inspect(original).width, 2'000'000);
  EXPECT_TRUE(ImageFacts::pixelsEqual(original, image("b.png", 0)));
  EXPECT_FALSE(ImageFacts::pixelsEqual(original, image("b.png", 1)));
}

TEST_F(Comparison, ComparesSamplesAtTheDepthOfTheFile) {
  constexpr int rgb = 2, grey = 0, rgba = 6;
  const auto pixel = [](int depth, int type, const std::string& samples) {
    return test::pngOfOneRow(1, depth, type, samples);
  };
  const struct {
    const char* what;
    std::string original, candidate;
    bool equal, looksEqual;
  } cases[] = {
      {"16 bits that 8 say, too", pixel(16, grey, "\x12\x12"), pixel(8, rgb, "\x12\x12\x12"), true, true},
      {"a low byte lost", pixel(16, grey, "\x12\x13"), pixel(8, grey, "\x12"), false, true},
      {"a colour under little alpha", pixel(8, rgba, "\x80\x80\x80\x01"), pixel(8, rgba, "\x81\x80\x80\x01"),
       false, true},
      {"a colour under no alpha", pixel(8, rgba, {"\x80\x80\x80\0", 4}),
       pixel(8, rgba, {"\xC8\x80\x80\0", 4}), true, true},
      {"an alpha", pixel(8, rgba, {"\0\0\0\0", 4}), pixel(8, rgba, {"\0\0\0\1", 4}), false, false},
      {"a width", pixel(8, grey, "1"), test::pngOfOneRow(2, 8, grey, "11"), false, false},
  };
  for (const auto& c : cases) {
    const URL original = folder_.write("a.png", c.original), candidate = folder_.write("b.png", c.candidate);
    EXPECT_EQ(ImageFacts::samplesEqual(original, candidate), c.equal) << c.what;
    EXPECT_EQ(ImageFacts::pixelsEqual(original, candidate), c.looksEqual) << c.what;
  }
  const URL low = write("a.png", {1, 1, [](int, int) { return Pixel{}; }}),
            high = write("b.png", {1, 2, [](int, int) { return Pixel{}; }});
  EXPECT_FALSE(ImageFacts::pixelsEqual(low, high));
}

TEST_F(Comparison, BoundsQuantisedAlpha) {
  using Alpha = std::function<int(int)>;  // by pixel number
  const auto all = [](int value) -> Alpha { return [=](int) { return value; }; };
  /// `value` for the first `count` pixels, `rest` for the others.
  const auto first = [](int count, int value, int rest) -> Alpha {
    return [=](int x) { return x < count ? value : rest; };
  };
  const auto turns = [](int even, int odd) -> Alpha { return [=](int x) { return x % 2 ? odd : even; }; };
  const Alpha rarely = [](int x) { return x % 40 == 0 ? 230 : x % 40 == 1 ? 170 : 200; };
  const struct {
    const char* name;
    Alpha original, candidate;
    bool expected;
  } cases[] = {
      {"a hole in opaque ground", all(255), first(1, 191, 255), false},
      {"no hole yet", all(255), first(1, 192, 255), true},
      {"a stain on clear ground", first(1, 0, 200), first(1, 3, 200), false},
      {"no stain yet", first(1, 0, 200), first(1, 2, 200), true},
      {"1 % change by 40", all(128), first(10, 168, 128), false},
      {"0.5 % change by 33", all(128), first(5, 161, 128), true},
      {"all change by 3", all(200), all(203), false},
      {"all change by 2, both ways", all(200), turns(198, 202), true},
      {"coverage grows by 1.5 %", all(100), turns(100, 103), false},
      {"squares above 36", all(200), rarely, false},
      {"only the candidate shows", all(0), all(1), false},
      {"nothing shows", all(0), all(0), true},
  };
  for (const auto& c : cases) {
    const auto image = [&](const char* name, const Alpha& alpha) {
      return write(name, Raster(1000, 1, [&](int x, int) {
                     return Pixel{9, 9, 9, static_cast<std::uint8_t>(alpha(x))};
                   }));
    };
    const URL original = image("a.png", c.original), candidate = image("b.png", c.candidate);
    EXPECT_EQ(ImageFacts::quantizedAlphaWithin(original, candidate), c.expected) << c.name;
  }
}

TEST_F(Comparison, ComparesAnimations) {
  const URL gif = folder_ / "a.gif", other = folder_ / "b.gif";
  test::GIFFile file;
  for (const std::uint8_t color : {'\0', '\1', '\2'})
    file.frames.push_back({.width = 4, .height = 4, .indexes = {color}});
  test::writeGIFFile(gif, file);
  const auto equal = [&](auto change) {
    test::GIFFile copy = file;
    change(copy.frames);
    test::writeGIFFile(other, copy);
    const bool areEqual = ImageFacts::gifFramesEqual({gif}, {other});
    // The same of what the inspections have begun, and from the start again, whatever the files are called.
    const auto inspected = [&](const URL& url) {
      return AnimationFile{folder_ / "gone.gif",
                           ImageFacts::inspection(url, ImageFacts::Views::unwanted).animation};
    };
    const AnimationFile first = inspected(gif), second = inspected(other);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(ImageFacts::gifFramesEqual(first, second), areEqual);
    return areEqual;
  };
  EXPECT_TRUE(equal([](auto& frames) { frames[1].delay = 99; }));
  EXPECT_TRUE(equal([](auto& frames) { frames[0].disposal = 2; }));  // the next frame covers all
  for (const std::size_t changed : {0, 2}) {
    EXPECT_FALSE(equal([&](auto& frames) { frames[changed].indexes = {3}; })) << changed;
  }
  // Frames that draw or clear a part only, in one of the two files or in both.
  file.frames = {{.width = 4, .height = 4, .indexes = {0}},
                 {.left = 1, .top = 1, .width = 2, .height = 2, .indexes = {1}, .disposal = 3},
                 {.left = 3, .width = 1, .height = 1, .indexes = {2}}};
  test::writeGIFFile(gif, file);
  EXPECT_TRUE(equal([](auto& frames) {  // the same, drawn as a whole
    frames[2] = {.width = 4, .height = 4, .indexes = {0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}};
  }));
  EXPECT_FALSE(equal([](auto& frames) { frames[1].disposal = 1; })) << "the candidate keeps what goes";
  EXPECT_FALSE(equal([](auto& frames) { frames[1].disposal = 2; })) << "or clears it";
  EXPECT_FALSE(equal([](auto& frames) { frames[2].left = 2; })) << "or draws elsewhere";
  EXPECT_FALSE(equal([](auto& frames) { frames[1].width = 3; })) << "or more";
  EXPECT_FALSE(equal([](auto& frames) { frames.push_back(frames[2]); }));
}

TEST_F(Comparison, ExportsAnimations) {
  // Frames of few colours, with and without alpha, and one of more than a palette holds; then fewer again, of
  // which one is clear for a moment.
  const URL gif = folder_ / "a.gif";
  test::GIFFile file{.width = 256, .height = 2, .frames = {}};
  for (const int y : {0, 1, 0}) {
    test::GIFFrame frame{.top = y, .width = 256, .indexes = {}};
    for (int x = 0; x < 256; ++x) {
      frame.indexes.push_back(static_cast<std::uint8_t>(x % 255));  // and nothing: as many as fit
      frame.palette.push_back({static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 0, 255});
    }
    file.frames.push_back(frame);
  }
  test::GIFFrame& whole = file.frames.back();
  whole.height = 2;
  whole.indexes = {7};
  test::GIFFrame part = whole;
  part.left = part.width = 9;
  part.disposal = 2;
  part.indexes = {8};
  file.frames.insert(file.frames.end(), {part, part, whole});
  file.frames[4].left = 100;
  test::writeGIFFile(gif, file);
  const auto frames = ImageFacts::exportGIFFrames(gif, folder_ / "deep/frames");
  const std::optional<bool> alphas[] = {true, {}, false, false, true, false};
  ASSERT_EQ(frames.size(), std::size(alphas));
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i], folder_ / ("deep/frames/frame-" + std::to_string(i) + ".png"));
    EXPECT_EQ(test::decoded(frames[i]), test::decoded(gif, i)) << i;
    EXPECT_EQ(ImageSource::open(frames[i])->properties(0).hasAlpha, alphas[i].value_or(true)) << i;
    const std::string ihdr = files::read(frames[i], 26);
    EXPECT_EQ(ihdr[25], alphas[i] ? 3 : 6) << i << ": a palette";
  }
  const URL none = folder_.write("none.gif", files::read(gif).substr(0, 13 + 12) + ";");
  EXPECT_TRUE(ImageFacts::gifFramesEqual({none}, {none}));
  EXPECT_TRUE(ImageFacts::exportGIFFrames(none, folder_ / "none").empty());
  files::createDirectories(folder_ / "blocked/frame-0.png");
  const std::pair<URL, const char*> failures[] = {
      {folder_.write("x.gif", "no"), "x"}, {folder_ / "missing.gif", "x"}, {gif, "blocked"}};
  for (const auto& [url, directory] : failures)
    EXPECT_THROW(ImageFacts::exportGIFFrames(url, folder_ / directory), CompressionError);
}

}  // namespace
}  // namespace tidewell
