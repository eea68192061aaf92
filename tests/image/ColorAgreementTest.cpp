#include "CompressionKit/image/ColorAgreement.h"

#include <gtest/gtest.h>
#include <lcms2.h>
#include <zlib.h>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/ImageSource.h"
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
  const struct {
    const char* what;
    std::string icc;
    bool isSRGB;
  } cases[] = {
      {"sRGB under another name", color::makeRGBProfile("Camera", color::bt709), true},
      {"P3 under its name", color::makeRGBProfile("sRGB Transfer with DCI-P3 Gamut", color::displayP3),
       false},
      {"a power of 2.2", color::makeRGBProfile("sRGB", color::bt709, 2.2), false},
      {"linear", color::makeRGBProfile("sRGB", color::bt709, 1), false},
      {"primaries of another standard",
       color::makeRGBProfile("sRGB", {0.3127, 0.3290, 0.630, 0.340, 0.310, 0.595, 0.155, 0.070}), false},
      {"a white of D50",
       color::makeRGBProfile("sRGB", {0.3457, 0.3585, 0.640, 0.330, 0.300, 0.600, 0.150, 0.060}), false},
      {"a grey one made RGB", color::rgbProfileOfGrey(greyProfile(1.8)), false},
      {"a grey one", greyProfile(2.2), false},
      {"nothing", "", false},
  };
  for (const auto& c : cases) EXPECT_EQ(color::isSRGB(c.icc), c.isSRGB) << c.what;
}

TEST(ColorAgreement, KeepsColoursWhateverTheNamesSay) {
  const test::TemporaryFolder folder;
  const std::string p3 = color::makeRGBProfile("sRGB Transfer with DCI-P3 Gamut", color::displayP3);
  const std::string sRGB = color::makeRGBProfile("sRGB", color::bt709);
  std::string odd = p3 + "x";  // libpng wants lengths of multiples of four
  odd.replace(2, 2, {static_cast<char>(odd.size() >> 8), static_cast<char>(odd.size())});
  std::string intent = p3;
  intent[67] = '\x09';  // nor such a rendering intent
  const std::string none, tag = test::pngChunk("sRGB", std::string(1, '\0'));
  const std::string cICP = test::pngChunk("cICP", std::string("\x0C\x0D\0\x01", 4));
  const std::string otherCICP = test::pngChunk("cICP", std::string("\x09\x10\0\x01", 4));
  const std::string sRGBCICP = test::pngChunk("cICP", std::string("\x01\x0D\0\x01", 4));
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
  const auto png = [&](const char* name, const std::string& chunks) {
    return folder.write(name, test::pngOfOneRow(1, 8, 2, "\xFF\x01\x02", chunks));
  };
  for (const auto& c : cases) {
    const URL original = png("a.png", c.original), candidate = png("b.png", c.candidate);
    EXPECT_EQ(colorsAgree(original, candidate, false), c.agrees) << c.what;
    EXPECT_EQ(colorsAgree(original, candidate, true), c.mayBeConverted) << c.what;
  }
  EXPECT_EQ(ImageSource::open(png("odd.png", profileChunk(odd)))->properties(0).profileName,
            "sRGB Transfer with DCI-P3 Gamut");

  // A JPEG says nothing without a profile.
  const auto jpeg = [&](const char* name, const std::string& icc) {
    test::JPEGFileOptions options;
    options.icc = icc;
    test::writeJPEGFile(folder / name, test::photoRaster(16, 16), options);
    return folder / name;
  };
  const URL plain = jpeg("plain.jpg", "");
  EXPECT_TRUE(colorsAgree(plain, plain, false));
  EXPECT_TRUE(colorsAgree(jpeg("a.jpg", sRGB), plain, false));
  EXPECT_FALSE(colorsAgree(jpeg("a.jpg", p3), plain, false));
  EXPECT_TRUE(colorsAgree(jpeg("a.jpg", p3), jpeg("b.jpg", p3), false));
}

}  // namespace
}  // namespace tidewell
