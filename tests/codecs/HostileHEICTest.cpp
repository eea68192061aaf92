// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "CompressionKit/codecs/HEICDecoder.h"
#include "CompressionKit/platform/Files.h"
#include "support/Decoding.h"
#include "support/HEICSample.h"

namespace tidewell {
namespace {

using test::DeepPixel;
using test::HEIFFile;

class HostileHEIC : public testing::Test {
 protected:
  void SetUp() override { TIDEWELL_NEEDS_HEIF_ENCODER(); }

  /// Why a file cannot be decoded; empty when it can.
  std::string refusal(const std::string& bytes) const {
    files::writeAtomically(heic, bytes, files::Durability::cached);
    return test::reasonOf([&] {
      HEICSource source(heic);
      source.verify(source.primaryIndex());
    });
  }

  const test::TemporaryFolder folder;
  const URL heic = folder / "photo.heic";
};

/// Images made of one another, the last of them of `end`; image 1 is a picture.
HEIFFile chained(HEIFFile file, std::uint32_t count, std::uint32_t end, const std::string& type = "iden") {
  for (std::uint32_t id = 2; id < 2 + count; ++id) {
    file.items.push_back({id, type, id > 2, {test::ispe(96, 64)}, ""});
    file.references.push_back({"dimg", id, {id == 1 + count ? end : id + 1}});
  }
  file.primary = 2;
  return file;
}

TEST_F(HostileHEIC, RefusesHostileFilesBeforeDecoding) {
  const HEIFFile plain = test::encodeHEIC(test::slopes()), large = test::encodeHEIC(test::slopes(1024, 1024));
  EXPECT_EQ(refusal(plain.bytes()), "");

  // A sequence parameter set: profile and level, then 0, 1, 65535 and 65535 (width, height) in Exp-Golomb
  // code.
  const std::string unit = test::number(33 << 9 | 1, 2) + "\1" + std::string(12, '\xFF') +
                           std::string("\xA0\0\x08\0\0\0\x04\0\0", 9);
  HEIFFile configured = plain, streamed = plain;
  configured.with(test::box("hvcC", std::string(22, '\1') + test::number(1, 1) + test::number(33, 1) +
                                        test::number(1, 2) + test::number(unit.size(), 2) + unit));
  streamed.items.front().data += test::number(unit.size(), 4) + unit;
  HEIFFile alphas = test::encodeHEIC(test::slopes(), true);
  alphas.references.push_back({"auxl", alphas.primary, {alphas.references.front().from}});
  HEIFFile twice = plain, film = plain, spinning = plain;
  twice.items.push_back(plain.items.front());
  film.items.front().data += plain.items.front().data;
  for (int i = 0; i < 9; ++i) spinning.with(test::irot(1));
  const struct {
    HEIFFile file;
    std::string reason;
  } cases[] = {
      {configured, "coded picture too large"},
      {streamed, "coded picture too large"},
      {test::grid({plain}, 1, 1, 40000, 40000), "grid too large"},
      {test::grid({plain}, 256, 256, 4000, 4000), "too many tiles"},
      {test::grid(std::vector(512, large), 16, 32, 96, 64), "too much to decode"},
      {test::grid(std::vector(4, plain), 2, 2, 193, 64), "tiles too small for their grid"},
      {test::grid(std::vector(4, plain), 2, 2, 192, 129), "tiles too small for their grid"},
      {test::grid({plain, large}, 2, 1, 96, 64), "unequal tiles"},
      {chained(plain, 1, 2), "images made of too many others"},
      {chained(plain, 3, 2), "images made of too many others"},
      {chained(plain, 3000, 1), "images made of too many others"},
      {alphas, "images made of too many others"},
      {chained(plain, 1, 77), "made of what is no image"},
      {chained(plain, 1, 77, "iovl"), "an overlay"},
      {chained(plain, 1, 77, "av01"), "not coded with HEVC"},
      {twice, "an item that is named twice"},
      {film, "more than one picture in a stream"},
      {spinning, "too many turns"},
  };
  for (const auto& c : cases) EXPECT_EQ(refusal(c.file.bytes()), "HEIF limits: " + c.reason) << &c - cases;

  HEIFFile declared = plain;
  declared.without("ispe").with(test::ispe(60000, 60000));
  EXPECT_NE(refusal(declared.bytes()), "");
  EXPECT_NE(refusal(plain.bytes() + test::box("meta", test::number(0, 4))), "");
  std::string pieces = test::number(0, 4) + test::number(0, 2) + test::number(20000, 2);  // of no bytes each
  for (std::uint64_t id = 1; id <= 20000; ++id) pieces += test::number(id << 32 | 65535, 6);
  EXPECT_EQ(refusal(plain.bytes().substr(0, 24) +
                    test::box("meta", test::number(0, 4) + test::box("iloc", pieces))),
            "HEIF limits: data in too many pieces");
  HEIFFile many = plain;
  for (std::uint32_t id = 2; id < 3000; ++id) {
    many.items.push_back(plain.items.front());
    many.items.back().id = id;
  }
  // No limit of ours; libheif has had one of its own since 1.19.
  EXPECT_FALSE(refusal(many.bytes()).starts_with("HEIF limits"));
}

/// One box of 65,535 units of no bytes, named 130,000 times: once per box, not per name, is a moment's work.
TEST_F(HostileHEIC, ManyNamesOfOneBoxCostNothing) {
  HEIFFile file = test::encodeHEIC(test::slopes());
  file.with(test::box("hvcC", std::string(22, '\1') + test::number(1, 1) + test::number(32, 1) +
                                  test::number(65535, 2) + std::string(65535 * 2, '\0')));
  file.repeats = 512;
  const std::clock_t start = std::clock();
  refusal(file.bytes());
  EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 2);
}

TEST_F(HostileHEIC, DamagedFilesFailOrDecode) {
  const std::string whole = test::encodeHEIC(test::slopes(), true).with(test::irot(1)).bytes();
  for (std::size_t part = 1; part < 16; ++part)
    EXPECT_NE(refusal(whole.substr(0, whole.size() * part / 16)), "") << part;
  EXPECT_NE(refusal(whole.substr(0, whole.size() - 1)), "");
  std::mt19937 random(1);
  int refused = 0;
  for (int run = 0; run < 300; ++run) {
    std::string damaged = whole;
    for (int i = 0; i < 3; ++i)
      damaged[random() % std::min<std::size_t>(damaged.size(), 900)] = static_cast<char>(random());
    refused += refusal(damaged).empty() ? 0 : 1;  // any other exception or a crash fails the test
  }
  EXPECT_GT(refused, 100);
}

/// The file is whole, but not the stream in it: libheif's own decoder delivers such pictures.
TEST_F(HostileHEIC, RefusesPicturesOfDamagedStreams) {
  const HEIFFile whole = test::encodeHEIC({512, 512, [](std::int64_t x, std::int64_t y) {
                                             return DeepPixel{static_cast<std::uint16_t>(x * y * 4999),
                                                              static_cast<std::uint16_t>(x * 120),
                                                              static_cast<std::uint16_t>(y * 120), 0xffff};
                                           }});
  const std::string& stream = whole.items.front().data;  // one slice
  ASSERT_EQ(test::number(stream.size() - 4, 4), stream.substr(0, 4));
  for (const double part : {0.1, 0.5, 0.9, 0.99}) {
    const auto kept = static_cast<std::size_t>(part * static_cast<double>(stream.size()));
    HEIFFile cut = whole;
    cut.items.front().data = test::number(kept - 4, 4) + stream.substr(4, kept - 4);
    EXPECT_NE(refusal(cut.bytes()), "") << part;
    HEIFFile zeroed = whole;
    zeroed.items.front().data = stream.substr(0, kept) + std::string(stream.size() - kept, '\0');
    EXPECT_NE(refusal(zeroed.bytes()), "") << part;
  }
  EXPECT_EQ(refusal(whole.bytes()), "");
}

}  // namespace
}  // namespace tidewell
