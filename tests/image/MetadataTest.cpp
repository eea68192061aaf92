// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/Metadata.h"

#include <gtest/gtest.h>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
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
using test::TemporaryFolder;

/// `properties` are attributes and elements of the packet's only description.
std::string packet(const std::string& attributes, const std::string& elements = "") {
  return "<?xpacket begin='\xEF\xBB\xBF'?><x:xmpmeta xmlns:x='adobe:ns:meta/'><r:RDF "
         "xmlns:r='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><r:Description\n xmlns:dc='http://d/' "
         "xmlns:t='http://ns.adobe.com/tiff/1.0/' xmlns:n='http://ns.adobe.com/xmp/note/' "
         "xmlns:g='http://ns.adobe.com/hdr-gain-map/1.0/' xmlns:G='http://ns.google.com/photos/1.0/camera/' "
         "xmlns:C='http://ns.google.com/photos/1.0/container/'" +
         attributes + ">" + elements + "</r:Description></r:RDF></x:xmpmeta><?xpacket end='w'?>" +
         std::string(20, ' ');
}
const std::string exif = test::exifWithOrientation(6, true);
const std::string xmpName = "http://ns.adobe.com/xap/1.0/\0"s;
const std::string plainPacket = packet(" dc:a='>b' G:c=\"1\"", "<dc:d/>");

/// The metadata of a JPEG is `before`, and what its candidate takes over `after`.
struct Segments {
  const char* name;
  std::string before, after;
};

std::string xmp(const std::string& text) {
  return jpegSegment(0xE1, xmpName + text);
}
std::string extension(const std::string& text) {
  return jpegSegment(0xE1, "http://ns.adobe.com/xmp/extension/\0"s + std::string(40, 'n') + text);
}
std::string density(const std::string& units) {
  return jpegSegment(0xE0, "JFIF\0\1\1"s + units + "\0\0"s);
}

class MetadataTest : public testing::Test {
 protected:
  std::string carried(const std::string& original, const std::string& candidate) {
    const URL to = folder_.write("candidate", candidate);
    metadata::carry(folder_.write("original", original), to);
    std::string result = files::read(to);
    metadata::carry(folder_ / "original", to);
    EXPECT_EQ(files::read(to), result) << "a second time changes nothing";
    return result;
  }
  std::string jpeg(bool withHeader, const test::JPEGFileOptions& options = {}) {
    test::writeJPEGFile(folder_ / "made.jpg", test::photoRaster(16, 16), options);
    const std::string data = files::read(folder_ / "made.jpg");
    return withHeader ? data : data.substr(0, 2) + data.substr(2 + 18);  // what libjpeg begins with
  }
  TemporaryFolder folder_;
};

TEST_F(MetadataTest, JPEGTakesOverWhatIsNotOfItsPixels) {
  const std::string kept = jpegSegment(0xE1, exif) + xmp(plainPacket) +
                           jpegSegment(0xED,
                                       "Photoshop 3.0\0"
                                       "8BIM"s) +
                           jpegSegment(0xFE, "a comment") + jpegSegment(0xFE, std::string(65533, 'c')) +
                           jpegSegment(0xE1, "FLIR\0\1\0\0"s) + jpegSegment(0xEC, "Ducky\0"s);
  std::string unknown;
  for (const int marker : {0xE1, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xEA, 0xEC, 0xED, 0xEF}) {
    unknown += jpegSegment(marker, "raw\xFF\xD9"s) + jpegSegment(marker, "");
  }
  const std::string directory =
      "<C:Directory><r:Seq><r:li r:parseType='Resource'><C:Item C:x='1'/></r:li></r:Seq></C:Directory>";
  const std::string noted = packet(" n:HasExtendedXMP='A'", "<dc:d/>");
  const Segments cases[] = {
      {"all that is kept, in its order", kept, kept},
      {"not what decides pixels or points behind them",
       jpegSegment(0xEE, "Adobe\0\0\0\0\0\0\0"s) + jpegSegment(0xE2, "MPF\0II*\0"s) +
           jpegSegment(0xEB, "JP") + jpegSegment(0xE2, "ICC_PROFILE\0\1\1x"s) +
           jpegSegment(0xE8, "SPIFF\0"s) + jpegSegment(0xE0, "JFXX\0"s) +
           jpegSegment(0xE2, "urn:iso:std:iso:ts:21496:-1\0"s) + jpegSegment(0xEE, "x"),
       ""},
      {"what nobody knows", unknown + jpegSegment(0xE1, "Exif"), unknown + jpegSegment(0xE1, "Exif")},
      {"stray bytes and fill bytes", "\xFF\xFF" + jpegSegment(0xFE, "a") + "stray" + jpegSegment(0xFE, "b"),
       jpegSegment(0xFE, "a") + jpegSegment(0xFE, "b")},
      {"a density with a unit", density("\1\1\x2C\1\x2C"s), density("\1\1\x2C\1\x2C"s)},
      {"none that says nothing", density("\0\0\1\0\1"s), ""},
      {"references go",
       xmp(packet(" dc:a='>b'\n g:Version=\"1.0\" G:MotionPhoto = '0' G:c='1'", directory + "<dc:d/>")),
       xmp(packet(" dc:a='>b' G:c='1'", "<dc:d/>"))},
      {"elements, too", xmp(packet("", "<g:Version>1</g:Version>a<dc:a><C:x/></dc:a><g:v/>")),
       xmp(packet("", "a<dc:a></dc:a>"))},
      {"a packet that cannot be read goes, if it has some", xmp("<a>" + packet(" g:Version='1'")), ""},
      {"or may hide some", xmp("<!DOCTYPE a [<!ENTITY b 'c'>]>" + packet(" g:Version='1'").substr(23)), ""},
      {"else it stays", xmp("<a>"), xmp("<a>")},
      {"padded with zeros", xmp(packet(" g:Version='1'") + "\0\0"s), xmp(packet("") + "\0\0"s)},
      {"an extension in parts", xmp(noted) + extension("one") + extension("two"),
       xmp(noted) + extension("one") + extension("two")},
      {"goes with its references",
       xmp(noted) + extension("http://ns.google.com/pho") + extension("tos/1.0/container/"),
       xmp(packet("", "<dc:d/>"))},
  };
  const std::string scan = jpeg(false).substr(2), candidate = "\xFF\xD8" + scan;
  for (const auto& c : cases) {
    EXPECT_EQ(carried("\xFF\xD8" + c.before + scan, candidate), "\xFF\xD8" + c.after + scan) << c.name;
    // What the candidate has of its own goes.
    std::string own = "\xFF\xD8";
    own.append(jpegSegment(0xE1, test::exifWithOrientation(6))).append(jpegSegment(0xFE, "own"));
    own.append(unknown).append(scan);
    EXPECT_EQ(carried("\xFF\xD8" + c.before + scan, own), "\xFF\xD8" + c.after + scan) << c.name;
  }
  EXPECT_EQ(carried("\xFF\xD8" + kept + scan, "\xFF\xD8" + density("\0\0\1\0\1"s) + scan),
            "\xFF\xD8" + density("\0\0\1\0\1"s) + kept + scan);
}

TEST_F(MetadataTest, JPEGGetsNoHeaderThatChangesColours) {
  const std::string original = "\xFF\xD8" + density("\1\1\x2C\1\x2C"s) + jpeg(false).substr(2);
  const auto hasHeader = [&](const std::string& candidate) {
    return carried(original, candidate).substr(2).starts_with("\xFF\xE0");
  };
  EXPECT_TRUE(hasHeader(jpeg(false, {.colors = test::JPEGColors::grey})));
  EXPECT_FALSE(hasHeader("\xFF\xD8" + jpegSegment(0xEE, "Adobe\0\0\0\0\0\0\0"s) + jpeg(false).substr(2)));
  std::string named = jpeg(false);
  named.at(named.find("\xFF\xC0") + 10) = 'R';  // the first component
  EXPECT_FALSE(hasHeader(named));
}

TEST_F(MetadataTest, PNGAndGIFTakeOverTheirTexts) {
  const auto png = [](const std::string& chunks, const std::string& behind = "") {
    const std::string file = test::pngOfOneRow(1, 8, 0, "x", chunks);
    return file.substr(0, file.size() - 12) + behind + pngChunk("IEND", "");
  };
  const std::string kept = pngChunk("eXIf", exif.substr(6)) + pngChunk("tEXt", "a\0b"s) +
                           pngChunk("iTXt", "XML:com.adobe.xmp\0\0\0\0\0x"s) +
                           pngChunk("pHYs", "\0\0\1\0\0\0\1\0\1"s);
  const std::string text = pngChunk("zTXt", "c\0\0d"s), time = pngChunk("tIME", "\7\1\1\1\1\1\1"s);
  const std::string gamma = pngChunk("gAMA", number(45455, 4)), color = pngChunk("sRGB", "\0"s);
  const std::string unsafe = pngChunk("caBX", "x") + pngChunk("prVW", "x") + pngChunk("mDCv", "x");
  const std::string safe = pngChunk("vpAg", "page"), offset = pngChunk("oFFs", "\0\0\0\1\0\0\0\1\0"s);
  EXPECT_EQ(carried(png(kept + gamma + unsafe + safe, text + time + offset),
                    png(color + pngChunk("tEXt", "own\0"s) + pngChunk("vpAg", "own"), text)),
            png(kept + safe + color, text + time + offset));

  const auto gif = [](const std::string& before, const std::string& between) {
    const std::string frame = "\x21\xF9\4\0\0\0\0\0,\0\0\0\0\1\0\1\0\0\2\2\x44\1\0"s;
    return "GIF89a\1\0\1\0\x80\0\0"s + "abcdef" + "\x21\xFF\x0BNETSCAPE2.0\3\1\0\0\0"s + before + frame +
           between + frame + ";";
  };
  const std::string comment = "\x21\xFE\3abc\1d\0"s, packet = "\x21\xFF\x0BXMP DataXMP<x/>"s;
  const std::string ending = std::string(60, 'x') + std::string(200, '\1') + "\0"s;  // as its bytes are read
  EXPECT_EQ(carried(gif(comment, packet + ending), gif("", "")), gif(comment + packet + ending, ""));
  EXPECT_EQ(carried(gif("", ""), gif(comment, comment)), gif("", ""));
}

TEST_F(MetadataTest, HEICGivesItsPrimaryImagesMetadataToAnUprightPNG) {
  const auto packetItem = "mime\0application/rdf+xml"s;
  test::HEIFFile heic;
  heic.items = {{1, "hvc1", false, {}, "p"},
                {2, "Exif", false, {}, number(6, 4) + exif},
                {3, packetItem, false, {}, packet(" t:Orientation='6' dc:a='b'")},
                {4, packetItem, false, {}, "of another image"},
                {5, packetItem + "\0deflate"s, false, {}, "packed"}};
  heic.references = {{"cdsc", 2, {1}}, {"cdsc", 3, {9, 1}}, {"cdsc", 4, {9}}, {"cdsc", 5, {1}}};
  const auto png = [](const std::string& chunks) { return test::pngOfOneRow(1, 8, 0, "x", chunks); };
  const std::string upright = pngChunk("eXIf", test::exifWithOrientation(1, true).substr(6));
  const std::string text = pngChunk("iTXt", "XML:com.adobe.xmp\0\0\0\0\0"s + packet(" dc:a='b'"));
  EXPECT_EQ(carried(heic.bytes(), png("")), png(upright + text));
  heic.items[1].data = number(0xFFFFFFFF, 4);  // begins behind its end
  EXPECT_EQ(carried(heic.bytes(), png("")), png(text));
}

TEST_F(MetadataTest, RefusesWhatItCannotReadAndLeavesTheCandidate) {
  const std::string photo = jpeg(true), png = test::pngOfOneRow(1, 8, 0, "x");
  const std::pair<std::string, std::string> cases[] = {
      {png, photo},
      {photo.substr(0, 40), photo},
      {photo, photo.substr(0, 40)},
      {"GIF89a", "GIF89a"},
      {"text", photo},
      {test::HEIFFile{}.bytes(), photo},
      {png.substr(0, 50), png},
      {test::pngOfOneRow(1, 8, 0, "x", pngChunk("tEXt", std::string(metadata::maximumBytes, 'x'))), png},
  };
  for (const auto& [original, candidate] : cases) {
    EXPECT_THROW(carried(original, candidate), CompressionError) << original.substr(0, 8);
    EXPECT_EQ(files::read(folder_ / "candidate"), candidate);
  }
}

TEST_F(MetadataTest, FindsVideosBehindPictures) {
  const std::string photo = jpeg(true), scan = photo.substr(2);
  const auto marked = [&](const std::string& attributes, const std::string& elements = "") {
    return "\xFF\xD8" + xmp(packet(attributes, elements)) + scan;
  };
  const std::string video = number(24, 4) + "ftypmp42";
  const std::string heic = test::HEIFFile{}.bytes();
  const std::string far((256 << 10) - 10 - heic.size(), '\0');  // across two of what is read at once
  const std::pair<std::string, bool> cases[] = {
      {photo, false},
      {photo + std::string(100, 'f') + video, true},
      {photo + "....ftypmp42", false},
      {photo + "MotionPhoto_Data", true},
      {marked(" G:MotionPhoto='1'"), true},
      {marked(" G:MotionPhotoVersion='1' G:MotionPhoto='0'"), false},
      {marked("", "<G:MicroVideo>1</G:MicroVideo>"), true},
      {marked("", "<C:Item C:Mime='video/mp4'/>"), true},
      {heic, false},
      {heic + test::box("mpvd", video), true},
      {heic + far + video, true},
      {test::pngOfOneRow(1, 8, 0, "x") + video, false},
      {"", false},
  };
  for (const auto& [data, expected] : cases) {
    EXPECT_EQ(metadata::embedsMedia(folder_.write("photo", data)), expected) << data.substr(0, 300);
  }
  EXPECT_FALSE(metadata::embedsMedia(folder_ / "missing"));
}

TEST_F(MetadataTest, NamesWhatAFileSays) {
  // Camera, date and artist; the place in a directory of its own; a thumbnail in the next.
  const auto entry = [](int tag, int type, int count, int value) {
    return number(static_cast<std::uint64_t>(tag), 2) + number(static_cast<std::uint64_t>(type), 2) +
           number(static_cast<std::uint64_t>(count), 4) + number(static_cast<std::uint64_t>(value), 4);
  };
  const std::string tiff = "MM\0*\0\0\0\x08"s + "\0\4"s + entry(0x010F, 2, 3, 0) + entry(0x0132, 2, 20, 0) +
                           entry(0x013B, 2, 4, 0) + entry(0x8825, 4, 1, 62) + number(92, 4) + "\0\2"s +
                           entry(0, 1, 4, 0) + entry(2, 5, 3, 0) + number(0, 4) + "\0\1"s +
                           entry(0x0202, 4, 1, 77) + number(0, 4);
  const std::string body = density("\1\1\x2C\1\x2C"s) + jpegSegment(0xE1, "Exif\0\0"s + tiff) + xmp("12345") +
                           jpegSegment(0xED,
                                       "Photoshop 3.0\0"
                                       "8BIM\4\4\0\0\0\0\0\3abc\0"s) +
                           jpegSegment(0xFE, "hello") + jpegSegment(0xE2, "MPF\0index"s);
  using Entries = std::vector<metadata::Entry>;
  const auto before = metadata::entries(folder_.write("a.jpg", "\xFF\xD8" + body));
  const Entries expected = {
      {"date", 20}, {"place", 24},  {"camera", 3},     {"author", 4},     {"Exif", tiff.size()},  {"XMP", 5},
      {"IPTC", 3},  {"comment", 5}, {"resolution", 7}, {"thumbnail", 77}, {"further pictures", 5}};
  EXPECT_EQ(before, expected);
  const auto after = metadata::entries(folder_.write(
      "a.png",
      test::pngOfOneRow(1, 8, 0, "x", pngChunk("tEXt", "Author\0ann"s) + pngChunk("tEXt", "Comment\0c"s))));
  EXPECT_EQ(after, (Entries{{"author", 10}, {"comment", 9}}));
  EXPECT_EQ(metadata::gone(before, after),
            (std::vector<std::string>{"date", "place", "camera", "Exif", "XMP", "IPTC", "resolution",
                                      "thumbnail", "further pictures"}));
  EXPECT_TRUE(metadata::entries(folder_.write("text", "no image")).empty());
}

}  // namespace
}  // namespace tidewell
