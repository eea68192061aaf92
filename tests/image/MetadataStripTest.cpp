// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/platform/Files.h"
#include "support/HEIFFile.h"
#include "support/TemporaryFolder.h"
#include "support/TestImages.h"

namespace tidewell {
namespace {

using namespace std::string_literals;
using test::jpegSegment;
using test::number;
using test::pngChunk;

const std::string secret = "SECRET";

class MetadataStripTest : public testing::Test {
 protected:
  std::string stripped(const std::string& name, const std::string& data) {
    const URL file = folder_.write(name, data);
    metadata::strip(file);
    std::string result = files::read(file);
    metadata::strip(file);
    EXPECT_EQ(files::read(file), result) << "a second time changes nothing";
    return result;
  }
  /// The file with all that was put into it is the plain one again.
  void expectPlain(const std::string& name, const std::string& full, const std::string& plain) {
    EXPECT_NE(full.find(secret), std::string::npos);
    EXPECT_TRUE(stripped("full-" + name, full) == plain) << name;
    EXPECT_TRUE(stripped("plain-" + name, plain) == plain) << name;
    EXPECT_EQ(test::decoded(folder_.write("with-" + name, full)), test::decoded(folder_ / ("full-" + name)))
        << name;
  }
  test::TemporaryFolder folder_;
};

TEST_F(MetadataStripTest, JPEGKeepsItsPixelsAndColours) {
  const std::string before = jpegSegment(0xE1, test::exifWithOrientation(6) + secret) +
                             jpegSegment(0xE1, "http://ns.adobe.com/xap/1.0/\0"s + secret) +
                             jpegSegment(0xE0, "JFXX\0\x10"s + secret) +
                             jpegSegment(0xE2, "MPF\0"s + secret) + jpegSegment(0xE2, "FPXR\0"s + secret) +
                             jpegSegment(0xEB, secret) + jpegSegment(0xED, "Photoshop 3.0\0"s + secret) +
                             jpegSegment(0xEF, "Adobe" + secret) + jpegSegment(0xFE, secret);
  for (const test::JPEGFileOptions& options :
       {test::JPEGFileOptions{.restart = 1}, {.progressive = true}, {.colors = test::JPEGColors::grey}}) {
    auto colored = options;
    if (options.colors == test::JPEGColors::rgb) {
      colored.icc = color::makeRGBProfile("Camera", color::displayP3, {});
    }
    const URL made = folder_ / "made.jpg";
    test::writeJPEGFile(made, test::photoRaster(40, 30), colored);
    const std::string plain = files::read(made);
    const std::string header = plain.substr(2, 18), rest = plain.substr(20);  // as libjpeg writes it
    std::string thumbnail = header.substr(4, 7) + "\1\1\x2C\1\x2C\2\1"s + secret;
    std::string full = "\xFF\xD8";
    full.append(before).append(jpegSegment(0xE0, thumbnail)).append(header).append("stray").append(secret);
    std::string scans = rest;
    scans.insert(scans.rfind("\xFF\xDA"), jpegSegment(0xFE, secret) + jpegSegment(0xE1, secret));
    full += scans + secret + "\xFF\xD8" + jpegSegment(0xE1, secret) + "\xFF\xD9";
    expectPlain("a.jpg", full, plain);
    const std::string inks = jpegSegment(0xEE, "Adobe\0\x64\0\0\0\0\1"s);
    std::string tagged = "\xFF\xD8", expected = tagged;
    tagged.append(jpegSegment(0xEE, inks.substr(4).append(secret))).append(rest);
    expected.append(inks).append(rest);
    EXPECT_EQ(stripped("b.jpg", tagged), expected);
  }
}

TEST_F(MetadataStripTest, PNGAndGIFKeepWhatShowsTheirPixels) {
  const auto png = [](const std::string& chunks, const std::string& behind = "") {
    const std::string file = test::pngOfOneRow(1, 8, 0, "x", chunks);
    return file.substr(0, file.size() - 12) + behind + pngChunk("IEND", "");
  };
  const std::string kept = pngChunk("gAMA", number(45455, 4)) + pngChunk("cICP", "\1\15\0\1"s) +
                           pngChunk("sBIT", "\7"s) + pngChunk("tRNS", "\0\1"s) + pngChunk("bKGD", "\0\2"s) +
                           pngChunk("cLLi", std::string(8, '\1'));
  const std::string gone =
      pngChunk("eXIf", test::exifWithOrientation(6).substr(6) + secret) + pngChunk("tEXt", "a\0"s + secret) +
      pngChunk("iTXt", "XML:com.adobe.xmp\0\0\0\0\0"s + secret) + pngChunk("pHYs", "\0\0\1\0\0\0\1\0\1"s) +
      pngChunk("tIME", "\7\1\1\1\1\1\1"s) + pngChunk("prVt", secret) + pngChunk("sRGB", secret) +
      pngChunk("sPLT", secret + "\0\x8"s);
  expectPlain("a.png", png(gone + kept, gone) + secret, png(kept));
  const std::string open = png(kept).substr(0, png(kept).size() - 12);
  EXPECT_EQ(stripped("b.png", open + pngChunk("IEND", secret)), png(kept));

  const auto block = [](const std::string& text) { return static_cast<char>(text.size()) + text + "\0"s; };
  const auto application = [&](const std::string& name, const std::string& text) {
    return "\x21\xFF\x0B" + name + block(text);
  };
  const std::string comments = "\x21\xFE" + block(secret) + application("SECRET__1.0", secret) +
                               application("XMP DataXMP", secret) + application("NETSCAPE2.0", secret) +
                               "\x21\x42" + block(secret) + "\x21\0"s + block(secret) + "\x21\1" +
                               block("            ") + "\x21\1" + block(secret);
  const std::string profile = application("ICCRGBG1012", "profile");
  test::writeGIFFile(folder_ / "made.gif",
                     {.frames = {{.indexes = {1}}, {.left = 1, .indexes = {2}, .delay = 7}}, .loop = 3});
  std::string plain = files::read(folder_ / "made.gif"), full;
  constexpr std::size_t head = 13 + 4 * 3;  // size and colours
  plain.insert(head, profile);
  full = plain.substr(0, head) + comments + plain.substr(head, plain.size() - head - 1) + comments + ";" +
         secret;
  expectPlain("a.gif", full, plain);
}

TEST_F(MetadataStripTest, RefusesWhatItCannotReadAndLeavesIt) {
  test::writeJPEGFile(folder_ / "made.jpg", test::photoRaster(16, 16));
  const std::string photo = files::read(folder_ / "made.jpg"), png = test::pngOfOneRow(1, 8, 0, "x");
  const std::string unknown = std::string(png).insert(33, test::pngChunk("CRIT", "x"));
  for (const std::string& data :
       {unknown, photo.substr(0, 40), photo.substr(0, photo.size() - 2), photo.substr(0, 2) + "\xFF\xE1\xFF"s,
        png.substr(0, 50), "GIF89a\1\0\1\0\0\0\0;"s, "GIF89a\1\0\1\0\0\0\0!\xF9\4abcd\1x\0;"s, "text"s,
        test::HEIFFile{}.bytes()}) {
    EXPECT_THROW(stripped("file", data), CompressionError) << data.size();
    EXPECT_EQ(files::read(folder_ / "file"), data);
  }
}

}  // namespace
}  // namespace tidewell
