// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <algorithm>

#include "CompressionKit/image/Metadata.h"
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

std::string gifOfOnePixel(const std::string& extension = "") {
  return "GIF89a\1\0\1\0\x80\0\0abcdef"s + extension + ",\0\0\0\0\1\0\1\0\0\2\2\x44\1\0;"s;
}

/// A multi-picture index of two pictures, of which the second has this type.
std::string pictureIndex(std::uint64_t type, bool little) {
  const auto value = [&](std::uint64_t of, int size) {
    std::string bytes = number(of, size);
    if (little) std::reverse(bytes.begin(), bytes.end());
    return bytes;
  };
  return jpegSegment(0xE2, "MPF\0"s + (little ? "II" : "MM") + value(42, 2) + value(8, 4) + value(1, 2) +
                               value(0xB002, 2) + value(7, 2) + value(32, 4) + value(26, 4) + value(0, 4) +
                               value(0x20030000, 4) + std::string(12, 'x') + value(type, 4) +
                               std::string(12, 'x'));
}

TEST(MetadataMedia, PassesOverWhatHoldsMoreThanItsPicture) {
  TemporaryFolder folder;
  const auto photo = [](const std::string& segments) {
    return "\xFF\xD8" + segments + jpegSegment(0xDA, "scan") + "\xFF\xD9";
  };
  const std::string plain = photo(""), png = test::pngOfOneRow(1, 8, 0, "x"), gif = gifOfOnePixel();
  const std::string archive(1025, 'z'), zeros(300 << 10, '\0');
  const auto with = [](const char* type, std::size_t bytes) {
    return test::pngOfOneRow(1, 8, 0, "x", pngChunk(type, std::string(bytes, 'l')));
  };
  const struct {
    const char* name;
    std::string data;
    bool expected;
  } cases[] = {
      {"behind a JPEG", plain + archive, true},
      {"a trifle", plain + archive.substr(1), false},
      {"zeros", plain + zeros, false},
      {"not only zeros", plain + zeros + 'z', true},
      {"behind a JPEG without an end", plain.substr(0, plain.size() - 1) + "\xDA\0\2"s + archive, false},
      {"pictures that serve the first", photo(pictureIndex(0x050000, true)) + archive, false},
      {"another eye", photo(pictureIndex(0x020002, true)) + archive, true},
      {"a panorama", photo(pictureIndex(0x020001, false)) + archive, true},
      {"an index alone", photo(pictureIndex(0x020002, false)), false},
      {"an index in pieces", photo(pictureIndex(0x020002, false).substr(0, 40) + "\xFF\xFE\0\2"s), false},
      {"behind a PNG", png + archive, true},
      {"zeros behind a PNG", png + zeros, false},
      {"behind a GIF", gif + archive, true},
      {"zeros behind a GIF", gif + zeros, false},
      {"an editor's layers", with("mkBF", 1025), true},
      {"few of them", with("mkBF", 1024), false},
      {"in two",
       test::pngOfOneRow(1, 8, 0, "x",
                         pngChunk("mkBT", std::string(600, 'l')) + pngChunk("prVW", std::string(600, 'p'))),
       true},
      {"safe to copy", with("vpAg", 2000), false},
      {"signatures", with("caBX", 2000), false},
      {"where rows begin", with("iDOT", 2000), false},
      {"more than is held", with("vpAg", metadata::maximumBytes), true},
      {"palettes", with("sPLT", 2000), false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(metadata::embedsMedia(folder.write("photo", c.data)), c.expected) << c.name;
  }
}

TEST(MetadataMedia, MeasuresWhatIsNeitherPictureNorKnown) {
  TemporaryFolder folder;
  const std::string scan = jpegSegment(0xDA, "\xFF\xD9");
  const std::string coded = "a\xFF\0\xD9\xFF\xD0\xFF\xD7\xFF\1"s;
  const std::string between = jpegSegment(0xC4, "\xFF\xD9tables") + jpegSegment(0xFE, "\xFF\xD9");
  const std::string head = "\xFF\xD8" + scan;
  const std::string png =
      test::pngOfOneRow(1, 8, 0, "x", pngChunk("caBX", "12") + pngChunk("gAMA", number(1, 4)));
  const auto split = [&](std::size_t at) {  // the marker of the end lies there
    return head + std::string(at - head.size(), 'x') + "\xFF\xD9" + "behind";
  };
  const std::pair<std::string, std::uint64_t> cases[] = {
      {head + coded + between + scan + coded + "\xFF\xFF\xD9" + "behind", 6},
      {split((256 << 10)), 6},
      {split((256 << 10) + 1), 6},
      {split((256 << 10) - 20), 6},
      {"\xFF\xD8" + jpegSegment(0xE3, "raw") + jpegSegment(0xEB, "JP") + jpegSegment(0xEE, "Adobe") + scan +
           "\xFF\xD9",
       5},
      {png + "behind", 2 + 6},
      {gifOfOnePixel("\x21\xFF\x0BSOMETHING11\1x\0"s) + "behind", 17 + 6},
  };
  for (const auto& [data, expected] : cases) {
    const auto found = metadata::entries(folder.write("photo", data));
    const auto other =
        std::find_if(found.begin(), found.end(), [](auto& it) { return it.name == "other data"; });
    EXPECT_EQ(other == found.end() ? 0 : other->bytes, expected) << data.substr(0, 60);
  }
  const auto indexed =
      folder.write("photo", "\xFF\xD8" + pictureIndex(0, true) + scan + "\xFF\xD9" + "second");
  EXPECT_EQ(metadata::entries(indexed), (std::vector<metadata::Entry>{{"further pictures", 58 + 6}}));
  EXPECT_EQ(metadata::gone({{"Exif", 9}, {"other data", 9}}, {{"Exif", 8}, {"other data", 8}}),
            std::vector<std::string>{"other data"})
      << "what stays of it stays as it is";
  EXPECT_TRUE(metadata::gone({{"other data", 9}}, {{"other data", 9}}).empty());
}

}  // namespace
}  // namespace tidewell
