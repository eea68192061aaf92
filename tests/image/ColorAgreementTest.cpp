// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ColorAgreement.h"

#include <gtest/gtest.h>
#include <lcms2.h>
#include <zlib.h>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "support/HEIFFile.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

/// An iCCP chunk as it is, whatever libpng thinks of the profile.
std::string profileChunk(const std::string& icc) {
  std::string compressed(compressBound(icc.size()), '\0');
  uLongf size = compressed.size();
  compress(reinterpret_cast<Bytef*>(compressed.data()), &size, reinterpret_cast<const Bytef*>(icc.data()),
           icc.size());
  return test::pngChunk("iCCP", std::string("x\0\0", 3) + compressed.substr(0, size));
}

std::string greyProfile(double gamma) {
  cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
  void* profile = cmsCreateGrayProfile(cmsD50_xyY(), curve);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  std::string bytes(size, '\0');
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  cmsFreeToneCurve(curve);
  return bytes;
}

TEST(ColorProfile, KnowsSRGBByItsNumbers) {
  EXPECT_TRUE(color::isSRGB(color::makeRGBProfile("Camera", color::bt709)));
  const color::Chromaticities other = {0.3127, 0.3290, 0.630, 0.340, 0.310, 0.595, 0.155, 0.070};  // SMPTE C
  const color::Chromaticities warm = {0.3457, 0.3585, 0.640, 0.330, 0.300, 0.600, 0.150, 0.060};   // of D50
  const std::string others[] = {color::makeRGBProfile("sRGB Transfer with DCI-P3 Gamut", color::displayP3),
                                color::makeRGBProfile("sRGB", color::bt709, 2.2),
                                color::makeRGBProfile("sRGB", color::bt709, 1),
                                color::makeRGBProfile("sRGB", other),
                                color::makeRGBProfile("sRGB", warm),
                                color::rgbProfileOfGrey(greyProfile(1.8)),
                                greyProfile(2.2),
                                ""};
  for (const std::string& icc : others) EXPECT_FALSE(color::isSRGB(icc)) << &icc - others;
}

TEST(ColorAgreement, KeepsColoursWhateverTheNamesSay) {
  const test::TemporaryFolder folder;
  const std::string p3 = color::makeRGBProfile("sRGB Transfer with DCI-P3 Gamut", color::displayP3);
  const std::string sRGB = color::makeRGBProfile("sRGB", color::bt709);
  std::string odd = p3 + "x";  // libpng wants lengths of multiples of four
  odd.replace(0, 4, test::number(odd.size(), 4));
  std::string intent = p3;
  intent[67] = '\x09';  // nor such a rendering intent
  const std::string none, tag = test::pngChunk("sRGB", std::string(1, '\0'));
  const std::string cICP = test::pngChunk("cICP", test::number(0x0C0D0001, 4));
  const std::string otherCICP = test::pngChunk("cICP", test::number(0x09100001, 4));
  const std::string sRGBCICP = test::pngChunk("cICP", test::number(0x010D0001, 4));
  const std::string grey = profileChunk(greyProfile(1.8));
  const struct {
    const char* what;
    std::string original, candidate;
    bool agrees, mayBeConverted;
  } cases[] = {
      {"untagged", none, none, true, true},
      {"untagged, tagged by the tool", none, tag, true, true},
      {"sRGB by numbers, dropped", profileChunk(sRGB), none, true, true},
      {"sRGB by name, dropped", profileChunk(p3), none, false, false},
      {"said to be converted", profileChunk(p3), tag, false, true},
      {"converted to a profile", profileChunk(p3), profileChunk(sRGB), false, true},
      {"kept", profileChunk(p3), profileChunk(p3), true, true},
      {"another profile of that name", profileChunk(p3), profileChunk(p3 + "1234"), false, false},
      {"refused by libpng, dropped", profileChunk(odd), none, false, false},
      {"refused by libpng, so not converted", profileChunk(odd), tag, false, false},
      {"refused by libpng, kept", profileChunk(odd), profileChunk(odd), true, true},
      {"of an odd intent, dropped", profileChunk(intent), none, false, false},
      {"grey, not converted", grey, tag, false, false},
      {"grey, kept", grey, grey, true, true},
      {"code points beside sRGB, dropped", cICP + tag, tag, false, false},
      {"code points of sRGB, dropped", sRGBCICP, tag, false, false},
      {"code points, changed", cICP, otherCICP, false, false},
      {"code points, new", tag, cICP, false, false},
      {"code points, kept", cICP + tag, cICP, true, true},
  };
  const auto properties = [](const URL& url) { return ImageSource::open(url)->properties(0); };
  const auto png = [&](const char* name, const std::string& chunks) {
    return properties(folder.write(name, test::pngOfOneRow(1, 8, 2, "\xFF\x01\x02", chunks)));
  };
  for (const auto& c : cases) {
    const auto original = png("a.png", c.original), candidate = png("b.png", c.candidate);
    EXPECT_EQ(colorsAgree(original, candidate, false), c.agrees) << c.what;
    EXPECT_EQ(colorsAgree(original, candidate, true), c.mayBeConverted) << c.what;
  }
  EXPECT_EQ(png("odd.png", profileChunk(odd)).profileName, "sRGB Transfer with DCI-P3 Gamut");

  // A JPEG says nothing without a profile.
  const auto jpeg = [&](const char* name, const std::string& icc) {
    test::writeJPEGFile(folder / name, test::photoRaster(16, 16), {.icc = icc});
    return properties(folder / name);
  };
  const auto plain = jpeg("plain.jpg", ""), wide = jpeg("p3.jpg", p3);
  EXPECT_TRUE(colorsAgree(plain, plain, false));
  EXPECT_TRUE(colorsAgree(jpeg("sRGB.jpg", sRGB), plain, false));
  EXPECT_FALSE(colorsAgree(wide, plain, false));
  EXPECT_TRUE(colorsAgree(wide, wide, false));
}

TEST(ColorAgreement, KnowsWhatSRGBLacks) {
  const test::TemporaryFolder folder;
  const std::string p3 = profileChunk(color::makeRGBProfile("Display P3", color::displayP3));
  const std::string sRGB = profileChunk(color::makeRGBProfile("sRGB", color::bt709));
  const auto repeated = [](std::size_t count, const std::string& pixel) {
    std::string pixels;
    while (pixels.size() < count * pixel.size()) pixels += pixel;
    return pixels;
  };
  const std::string red("\xFF\0\0", 3), muted = "\xC8\x64\x5A";
  const struct {
    const char* what;
    std::string chunks, pixels;
    int type;
    bool needsMore;
  } cases[] = {
      {"red", p3, repeated(8, red), 2, true},
      {"muted colours", p3, repeated(8, muted), 2, false},
      {"the same numbers of sRGB", sRGB, repeated(8, red), 2, false},
      {"of nothing", "", repeated(8, red), 2, false},
      {"one pixel in 2000", p3, red + repeated(1999, muted), 2, false},
      {"four", p3, repeated(4, red) + repeated(1996, muted), 2, true},
      {"where nothing shows", p3, repeated(8, red + std::string(1, '\0')), 6, false},
  };
  for (const auto& c : cases) {
    const int width = static_cast<int>(c.pixels.size()) / (c.type == 6 ? 4 : 3);
    const URL png = folder.write("a.png", test::pngOfOneRow(width, 8, c.type, c.pixels, c.chunks));
    EXPECT_EQ(needsMoreThanSRGB(png, ImageSource::open(png)->properties(0)), c.needsMore) << c.what;
  }
}

}  // namespace
}  // namespace tidewell
