#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "CompressionKit/codecs/HEICDecoder.h"
#include "CompressionKit/platform/Files.h"
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
    try {
      HEICSource source(heic);
      source.verify(source.primaryIndex());
    } catch (const ImageDecodeError& error) {
      return error.reason().empty() ? "unknown" : error.reason();
    }
    return "";
  }

  const test::TemporaryFolder folder;
  const URL heic = folder / "photo.heic";
};

/// A HEVC sequence parameter set of a picture of `width` x `height`, in an "hvcC" box.
std::string enormousParameterSet(std::uint64_t width, std::uint64_t height) {
  std::string bits =
      "0000"
      "000"
      "1" +
      std::string(96, '1');
  for (const std::uint64_t code : {std::uint64_t{0}, std::uint64_t{1}, width, height}) {
    std::string digits;
    for (std::uint64_t rest = code + 1; rest > 0; rest /= 2)
      digits.insert(digits.begin(), rest % 2 == 0 ? '0' : '1');
    bits += std::string(digits.size() - 1, '0') + digits;
  }
  bits.resize((bits.size() + 7) / 8 * 8, '0');
  std::string unit = test::number(33 << 9 | 1, 2);
  for (std::size_t i = 0; i < bits.size(); i += 8)
    unit += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
  return unit;
}

TEST_F(HostileHEIC, RefusesHostileFilesBeforeDecoding) {
  const HEIFFile plain = test::encodeHEIC(test::slopes());
  EXPECT_EQ(refusal(plain.bytes()), "");

  HEIFFile configured = plain;
  const std::string unit = enormousParameterSet(65535, 65535);
  configured.with(test::box("hvcC", std::string(22, '\1') + test::number(1, 1) + test::number(33, 1) +
                                        test::number(1, 2) + test::number(unit.size(), 2) + unit));
  EXPECT_EQ(refusal(configured.bytes()), "HEIF limits: coded picture too large");
  HEIFFile streamed = plain;
  streamed.items.front().data += test::number(unit.size(), 4) + unit;
  EXPECT_EQ(refusal(streamed.bytes()), "HEIF limits: coded picture too large");

  EXPECT_EQ(refusal(test::grid({plain}, 1, 1, 40000, 40000).bytes()), "HEIF limits: grid too large");
  EXPECT_EQ(refusal(test::grid({plain}, 256, 256, 4000, 4000).bytes()), "HEIF limits: too many tiles");
  HEIFFile declared = plain;
  declared.without("ispe").with(test::ispe(60000, 60000));
  EXPECT_NE(refusal(declared.bytes()), "");
  EXPECT_NE(refusal(plain.bytes() + test::box("meta", test::number(0, 4))), "");

  const std::string work = "HEIF limits: too much to decode";
  const std::string depth = "HEIF limits: images made of too many others";
  const HEIFFile large = test::encodeHEIC(test::slopes(1024, 1024));
  EXPECT_EQ(refusal(test::grid(std::vector(512, large), 16, 32, 96, 64).bytes()), work);
  EXPECT_EQ(refusal(test::grid(std::vector(4, plain), 2, 2, 193, 64).bytes()),
            "HEIF limits: tiles too small for their grid");
  EXPECT_EQ(refusal(test::grid({plain, large}, 2, 1, 96, 64).bytes()), "HEIF limits: unequal tiles");

  // Identity images of one another, in a ring and in a long row; the rows end at a picture.
  for (const auto& [count, last] : {std::pair(1U, 2U), std::pair(3U, 2U), std::pair(3000U, 1U)}) {
    HEIFFile chain = plain;
    for (std::uint32_t id = 2; id < 2 + count; ++id) {
      chain.items.push_back({id, "iden", id > 2, {test::ispe(96, 64)}, ""});
      chain.references.push_back({"dimg", id, {id == 1 + count ? last : id + 1}});
    }
    chain.primary = 2;
    EXPECT_EQ(refusal(chain.bytes()), depth) << count;
  }
  HEIFFile alphas = test::encodeHEIC(test::slopes(), true);
  alphas.references.push_back({"auxl", alphas.primary, {alphas.references.front().from}});
  EXPECT_EQ(refusal(alphas.bytes()), depth);
  HEIFFile other = plain;
  other.items.push_back({2, "iden", false, {test::ispe(96, 64)}, ""});
  other.references = {{"dimg", 2, {77}}};
  other.primary = 2;
  EXPECT_EQ(refusal(other.bytes()), "HEIF limits: made of what is no image");
  for (const auto& [type, reason] :
       {std::pair("iovl", "an overlay"), std::pair("av01", "not coded with HEVC")}) {
    other.items.back().type = type;
    EXPECT_EQ(refusal(other.bytes()), std::string("HEIF limits: ") + reason);
  }
  HEIFFile twice = plain;
  twice.items.push_back(twice.items.front());
  EXPECT_EQ(refusal(twice.bytes()), "HEIF limits: an item that is named twice");

  HEIFFile film = plain;
  film.items.front().data += plain.items.front().data;
  EXPECT_EQ(refusal(film.bytes()), "HEIF limits: more than one picture in a stream");
  HEIFFile spinning = plain;
  for (int i = 0; i < 9; ++i) spinning.with(test::irot(1));
  EXPECT_EQ(refusal(spinning.bytes()), "HEIF limits: too many turns");
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
