#include "CompressionKit/image/ImageFacts.h"

#include <gtest/gtest.h>

#include <cmath>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/QualityAssessment.h"
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
  const struct {
    const char *name, *kind;
  } cases[] = {
      {"photo.JPG", "jpeg"}, {"photo.jpeg", "jpeg"}, {"a.PnG", "png"}, {"x.gif", "gif"}, {"x.heif", "heic"},
      {"x.heic", "heic"},    {"x.webp", ""},         {"x.tiff", ""},   {"photo", ""},    {".jpg", ""}};
  for (const auto& c : cases) {
    const auto kind = ImageKind::from(URL::file(std::string("/a/") + c.name));
    EXPECT_EQ(kind ? kind->rawValue() : "", c.kind) << c.name;
    EXPECT_EQ(kind, ImageKind::fromRawValue(c.kind));
  }
  EXPECT_FALSE(ImageKind::fromRawValue("JPEG"));
}

ImageFacts facts(ImageKind kind, std::optional<std::string> profile) {
  ImageFacts facts;
  facts.kind = kind;
  facts.width = 4;
  facts.height = 3;
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
  const auto changed = [](ImageFacts facts, auto change) {
    change(facts);
    return facts;
  };
  EXPECT_FALSE(png.compatible(changed(png, [](auto& f) { f.width = 5; }), true));
  EXPECT_FALSE(png.compatible(changed(png, [](auto& f) { f.height = 5; }), true));
  EXPECT_FALSE(png.compatible(changed(png, [](auto& f) { f.frameCount = 2; }), true));
  EXPECT_FALSE(png.compatible(changed(png, [](auto& f) { f.kind = ImageKind::jpeg; }), true));
  EXPECT_FALSE(png.compatible(changed(png, [](auto& f) { f.orientation = 6; }), true));
  const ImageFacts clear = changed(png, [](auto& f) { f.hasAlpha = true; });
  EXPECT_TRUE(png.compatible(clear, false));
  EXPECT_FALSE(png == clear);

  ImageFacts gif = facts(ImageKind::gif, "sRGB");
  gif.gifFrameDelays = {0.1};
  EXPECT_TRUE(gif.compatible(changed(gif,
                                     [](auto& f) {
                                       f.gifFrameDelays = {0.1000005};
                                       f.orientation = 3;
                                     }),
                             false));
  EXPECT_FALSE(gif.compatible(changed(gif, [](auto& f) { f.gifFrameDelays = {0.10001}; }), false));
  EXPECT_FALSE(gif.compatible(changed(gif, [](auto& f) { f.gifFrameDelays = {0.1, 0.1}; }), false));
  EXPECT_FALSE(gif.compatible(changed(gif, [](auto& f) { f.gifLoopCount = 0; }), false));
}

TEST(ImageFacts, InspectsAndRefuses) {
  const TemporaryFolder folder;
  const Raster raster = test::photoRaster(20, 10);
  test::JPEGFileOptions turned;
  turned.exif = test::exifWithOrientation(6);
  test::writeJPEGFile(folder / "a.JPG", raster, turned);
  const ImageFacts jpeg = ImageFacts::inspect(folder / "a.JPG");
  ImageFacts expected = facts(ImageKind::jpeg, "sRGB IEC61966-2.1");
  expected.width = 20;
  expected.height = 10;
  expected.orientation = 6;
  EXPECT_EQ(jpeg, expected);

  test::writePNGFile(folder / "b.png", raster);
  const std::string png = files::read(folder / "b.png"), photo = files::read(folder / "a.JPG");
  using enum CompressionError::Case;
  const struct {
    const char* name;
    CompressionError::Case failure;
    std::string data;
  } cases[] = {
      {"png.jpg", formatMismatch, png},
      {"jpg.gif", formatMismatch, photo},
      {"jpg.png", invalidImage, photo},
      {"cut.jpg", invalidImage, photo.substr(0, photo.size() / 2)},
      {"apng.png", fileOperation, test::withChunk(png, "acTL", "12345678")},
      {"text.jpg", invalidImage, "text"},
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
    const URL url = folder_ / name;
    test::writePNGFile(url, raster, {.alpha = true, .interlaced = false, .icc = {}, .gamma = {}});
    return url;
  }
  /// An image whose alpha values are those of `alpha` by pixel number.
  URL alphaImage(const char* name, int pixels, const std::function<int(int)>& alpha) const {
    return write(name, Raster(pixels, 1, [&](int x, int) {
                   return Pixel{9, 9, 9, static_cast<std::uint8_t>(alpha(x))};
                 }));
  }
  TemporaryFolder folder_;
};

TEST_F(Comparison, FindsOneDifferentByteInAnyBand) {
  // 1,048 rows fill a band of 1000 columns: 3000 rows are three bands.
  const auto make = [](int oddRow) {
    return Raster(1000, 3000, [=](int x, int y) {
      return Pixel{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 3,
                   static_cast<std::uint8_t>(y == oddRow && x == 999 ? 254 : 255)};
    });
  };
  const URL original = write("a.png", make(-1));
  EXPECT_TRUE(ImageFacts::pixelsEqual(original, write("b.png", make(-1))));
  for (const int row : {0, 1047, 1048, 2999}) {
    const URL candidate = write("b.png", make(row));
    EXPECT_FALSE(ImageFacts::pixelsEqual(original, candidate)) << row;
    EXPECT_FALSE(ImageFacts::alphaDeviationWithin(original, candidate, 0)) << row;
    EXPECT_TRUE(ImageFacts::alphaDeviationWithin(original, candidate, 1)) << row;
  }
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

TEST_F(Comparison, LooksAtWhatShows) {
  const auto clear = [](std::uint8_t color) {
    return Raster(4, 4, [=](int, int) { return Pixel{color, color, color, 0}; });
  };
  EXPECT_TRUE(ImageFacts::pixelsEqual(write("a.png", clear(0)), write("b.png", clear(200))));
  EXPECT_TRUE(ImageFacts::quantizedAlphaWithin(folder_ / "a.png", folder_ / "b.png"));
  EXPECT_FALSE(ImageFacts::pixelsEqual(folder_ / "a.png",
                                       write("c.png", Raster(4, 5, [](int, int) { return Pixel{}; }))));
  EXPECT_FALSE(ImageFacts::pixelsEqual(folder_ / "a.png", folder_ / "missing.png"));
  EXPECT_FALSE(ImageFacts::quantizedAlphaWithin(folder_.write("x.png", "no image"), folder_ / "a.png"));
}

TEST_F(Comparison, ComparesSamplesAtTheDepthOfTheFile) {
  constexpr int rgb = 2, grey = 0, rgba = 6;
  const struct {
    const char* what;
    std::string original, candidate;
    bool equal, looksEqual;
  } cases[] = {
      {"16 bits reduced to 8 that say the same", test::pngOfOneRow(1, 16, grey, "\x12\x12"),
       test::pngOfOneRow(1, 8, rgb, "\x12\x12\x12"), true, true},
      {"a low byte lost", test::pngOfOneRow(1, 16, grey, "\x12\x13"), test::pngOfOneRow(1, 8, grey, "\x12"),
       false, true},
      {"a colour under little alpha", test::pngOfOneRow(1, 8, rgba, "\x80\x80\x80\x01"),
       test::pngOfOneRow(1, 8, rgba, "\x81\x80\x80\x01"), false, true},
      {"a colour under no alpha", test::pngOfOneRow(1, 8, rgba, std::string("\x80\x80\x80\0", 4)),
       test::pngOfOneRow(1, 8, rgba, std::string("\x81\x80\x80\0", 4)), true, true},
      {"an alpha", test::pngOfOneRow(1, 8, rgba, std::string("\0\0\0\0", 4)),
       test::pngOfOneRow(1, 8, rgba, std::string("\0\0\0\1", 4)), false, false},
      {"a size", test::pngOfOneRow(1, 8, grey, "1"), test::pngOfOneRow(2, 8, grey, "11"), false, false},
  };
  for (const auto& c : cases) {
    const URL original = folder_.write("a.png", c.original), candidate = folder_.write("b.png", c.candidate);
    EXPECT_EQ(ImageFacts::samplesEqual(original, candidate), c.equal) << c.what;
    EXPECT_EQ(ImageFacts::pixelsEqual(original, candidate), c.looksEqual) << c.what;
  }
}

TEST_F(Comparison, BoundsQuantisedAlpha) {
  using Alpha = std::function<int(int)>;
  const auto all = [](int value) -> Alpha { return [=](int) { return value; }; };
  /// `value` for the first `count` pixels, `rest` for the others.
  const auto first = [](int count, int value, int rest) -> Alpha {
    return [=](int x) { return x < count ? value : rest; };
  };
  const struct {
    const char* name;
    Alpha original, candidate;
    bool expected;
  } cases[] = {
      {"a hole in opaque ground", first(1, 255, 255), first(1, 191, 255), false},
      {"no hole yet", first(1, 255, 255), first(1, 192, 255), true},
      {"a stain on clear ground", first(1, 0, 200), first(1, 3, 200), false},
      {"no stain yet", first(1, 0, 200), first(1, 2, 200), true},
      {"1 % change by 40", first(10, 128, 128), first(10, 168, 128), false},
      {"0.5 % change by 33", first(5, 128, 128), first(5, 161, 128), true},
      {"all change by 3", all(200), all(203), false},
      {"all change by 2, both ways", all(200), [](int x) { return x % 2 ? 202 : 198; }, true},
      {"coverage grows by 1.5 %", all(100), [](int x) { return x % 2 ? 103 : 100; }, false},
      {"squares above 36", all(200), [](int x) { return x % 20 == 0   ? 228
                                                        : x % 20 == 1 ? 172
                                                                      : 200; },
       false},
      {"only the candidate shows", all(0), all(1), false},
      {"nothing shows", all(0), all(0), true},
  };
  for (const auto& c : cases) {
    const URL original = alphaImage("a.png", 1000, c.original),
              candidate = alphaImage("b.png", 1000, c.candidate);
    EXPECT_EQ(ImageFacts::quantizedAlphaWithin(original, candidate), c.expected) << c.name;
  }
}

TEST_F(Comparison, ComparesAndExportsAnimations) {
  test::GIFFile file;
  for (const int color : {0, 1, 2}) {
    test::GIFFrame frame;
    frame.width = frame.height = 4;
    frame.indexes = {static_cast<std::uint8_t>(color)};
    file.frames.push_back(frame);
  }
  test::writeGIFFile(folder_ / "a.gif", file);
  const auto variant = [&](auto change) {
    test::GIFFile copy = file;
    change(copy);
    test::writeGIFFile(folder_ / "b.gif", copy);
    return ImageFacts::gifFramesEqual(folder_ / "a.gif", folder_ / "b.gif");
  };
  EXPECT_TRUE(variant([](auto& f) { f.frames[1].delay = 99; }));
  EXPECT_TRUE(variant([](auto& f) { f.frames[0].disposal = 2; }));  // the next frame covers all
  EXPECT_FALSE(variant([](auto& f) { f.frames[2].indexes = {3}; }));
  EXPECT_FALSE(variant([](auto& f) { f.frames.pop_back(); }));
  const std::string data = files::read(folder_ / "a.gif");
  const std::string none = data.substr(0, 13 + 12) + ";";
  EXPECT_TRUE(ImageFacts::gifFramesEqual(folder_.write("n.gif", none), folder_.write("m.gif", none)));

  const auto frames = ImageFacts::exportGIFFrames(folder_ / "a.gif", folder_ / "deep/frames");
  ASSERT_EQ(frames.size(), 3U);
  const Pixel colors[] = {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(frames[i], folder_ / ("deep/frames/frame-" + std::to_string(i) + ".png"));
    const auto pixels = test::decoded(frames[i]);
    ASSERT_EQ(pixels.size(), 64U);
    EXPECT_TRUE(std::equal(colors[i].begin(), colors[i].end(), pixels.begin()));
  }
  // Frames of few colours, with and without alpha, and one of more than a palette holds.
  test::GIFFile rich;
  rich.width = 256;
  rich.height = 2;
  for (const int y : {0, 1, 0}) {
    test::GIFFrame frame;
    frame.top = y;
    frame.width = 256;
    for (int x = 0; x < 256; ++x) {
      frame.indexes.push_back(static_cast<std::uint8_t>(x));
      frame.palette.push_back({static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 0, 255});
    }
    rich.frames.push_back(frame);
  }
  rich.frames.back().height = 2;
  rich.frames.back().indexes = {7};
  test::writeGIFFile(folder_ / "rich.gif", rich);
  const auto all = ImageFacts::exportGIFFrames(folder_ / "rich.gif", folder_ / "rich");
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(test::decoded(all[i]), test::decoded(folder_ / "rich.gif", i)) << i;
    EXPECT_TRUE(i == 1 || ImageSource::open(all[i])->properties(0).hasAlpha == (i == 0)) << i;
  }
  EXPECT_TRUE(ImageFacts::exportGIFFrames(folder_ / "n.gif", folder_ / "none").empty());
  EXPECT_THROW(ImageFacts::exportGIFFrames(folder_.write("x.gif", "no"), folder_ / "x"), CompressionError);
  EXPECT_THROW(ImageFacts::exportGIFFrames(folder_ / "missing.gif", folder_ / "x"), CompressionError);
  files::createDirectories(folder_ / "blocked/frame-0.png");
  EXPECT_THROW(ImageFacts::exportGIFFrames(folder_ / "a.gif", folder_ / "blocked"), CompressionError);
}

// --- Scores ------------------------------------------------------------------------------------------------

TEST(QualityAssessment, ReadsOneFiniteNumber) {
  const struct {
    const char* output;
    double score;
  } good[] = {{"  85.123\n", 85.123}, {"-3.5", -3.5}, {"100", 100}, {"\t7e1\r\n", 70}};
  for (const auto& c : good) EXPECT_EQ(QualityAssessment::parsedScore(c.output), c.score);
  for (const char* bad : {"", " \n", "nan", "inf", "-inf", "score 3", "3 4", "3,5", "0x10", "1e999"}) {
    EXPECT_THROW(QualityAssessment::parsedScore(bad), CompressionError) << bad;
  }
}

TEST(QualityAssessment, MeasuresLargeImagesByTwoViews) {
  const TemporaryFolder folder;
  // Stands in for the metric: says what it was shown, and scores by the kind of view.
  test::writeScript(folder, "tools/ssimulacra2",
                    "echo \"$1 $2\" >> " + (folder / "log").path() + "; cp \"$1\" \"$2\" " +
                        folder.url().path() +
                        " 2>/dev/null; case \"$1\" in "
                        "*overview*) echo 84.0;; *detail*) echo 71.25;; *) echo 90;; esac");
  const ToolRunner tools(folder / "tools");
  const Raster raster = test::photoRaster(2100, 790);
  files::createDirectory(folder / "work");
  test::writePNGFile(folder / "a.png", raster);
  test::writePNGFile(folder / "work/b.png", raster);
  ImageFacts whole = facts(ImageKind::png, "sRGB");
  whole.width = 4000;
  whole.height = 2000;
  EXPECT_EQ(QualityAssessment::score(folder / "a.png", folder / "work/b.png", whole, tools), 90);
  EXPECT_EQ(files::read(folder / "log"),
            (folder / "a.png").path() + " " + (folder / "work/b.png").path() + "\n");

  whole.width = 4001;  // what the facts say decides, and here they say a little more than the file
  EXPECT_EQ(QualityAssessment::score(folder / "a.png", folder / "work/b.png", whole, tools), 71.25);
  const auto size = [&](const char* name) {
    const auto properties = ImageSource::open(folder / name)->properties(0);
    return std::pair(properties.width, properties.height);
  };
  EXPECT_EQ(size("overview-0.png"), std::pair(std::int64_t{2048}, std::int64_t{770}));
  EXPECT_EQ(size("detail-1.png"), std::pair(std::int64_t{768}, std::int64_t{768}));
  const auto crop = test::decoded(folder / "detail-0.png");
  const Pixel& corner = raster.at((2100 - 768) / 2, (790 - 768) / 2);
  EXPECT_TRUE(std::equal(corner.begin(), corner.end(), crop.begin()));
  EXPECT_EQ(files::contentsOfDirectory(folder / "work").size(), 1U);  // no scratch directory stays

  folder.write("work/b.png", "no image");
  EXPECT_THROW(QualityAssessment::score(folder / "a.png", folder / "work/b.png", whole, tools),
               CompressionError);
  EXPECT_EQ(files::contentsOfDirectory(folder / "work").size(), 1U);
}

}  // namespace
}  // namespace tidewell
