// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/platform/Files.h"
#include "support/Decoding.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::decoded;
using test::GIFFrame;
using test::propertiesOf;

/// The canvas as one letter a pixel: r, g, b, w, or "." for nothing.
std::string canvas(ImageSource& source, std::size_t index) {
  const auto rows = source.rows(index);
  std::vector<std::uint8_t> row(static_cast<std::size_t>(rows->width()) * 4);
  std::string text;
  for (auto y = rows->height(); y > 0; --y) {
    rows->read(row);
    for (const std::uint8_t* p = row.data(); p < row.data() + row.size(); p += 4)
      text += p[3] == 0 ? '.' : p[0] && p[1] ? 'w' : p[0] ? 'r' : p[1] ? 'g' : 'b';
  }
  return text;
}

class GIFDecoder : public testing::Test {
 protected:
  const test::TemporaryFolder folder;
  const URL gif = folder / "a.gif";
};

TEST_F(GIFDecoder, ComposesFrames) {
  test::GIFFile file{.width = 3, .height = 2, .frames = {}};
  file.frames = {
      {.width = 3, .height = 2, .indexes = {0}, .disposal = 1},  // all red, stays
      {.left = 1, .height = 2, .indexes = {1}, .disposal = 2},   // a green column, cleared afterwards
      {.width = 2, .indexes = {2}, .disposal = 3},               // blue, taken back afterwards
      {.left = 1, .top = 1, .width = 4, .height = 4, .indexes = {3}, .disposal = 3},  // also outside the
                                                                                      // screen
      {.width = 3, .indexes = {0, 1, 2}, .transparent = 1},
      {.top = 1, .indexes = {1}, .palette = {{0, 0, 0, 255}, {255, 255, 255, 255}}}};
  test::writeGIFFile(gif, file);
  const std::string expected[] = {"rrrrrr", "rgrrgr", "bbrr.r", "r.rrww", "r.br.r", "r.bw.r"};
  const auto source = ImageSource::open(gif);
  for (const std::size_t index : {0, 1, 2, 3, 4, 5, 4, 1, 1, 0, 5})  // forwards, then in any order
    EXPECT_EQ(canvas(*source, index), expected[index]) << index;
  // Where a frame does not say that it changed something, it shows what the one before did.
  const auto animation = openAnimation(ImageInput(gif), {});
  std::string shown(6, '?');
  for (std::size_t index = 0; index < animation->count(); ++index) {
    const std::string whole = canvas(*animation, index);
    for (const auto& area : animation->canvas(index).changed) {
      for (auto y = area.top; y < area.top + area.height; ++y) {
        const auto at = static_cast<std::size_t>(y * 3 + area.left),
                   width = static_cast<std::size_t>(area.width);
        shown.replace(at, width, whole, at, width);
      }
    }
    EXPECT_EQ(shown, expected[index]) << index;
  }
  const auto areas = animation->canvas(4).changed;  // what frame 3 is taken back from, and a row of its own
  EXPECT_EQ(areas[0].width * areas[0].height + areas[1].width * areas[1].height, 2 + 3);

  file = {.width = 1, .height = 11, .frames = {{.height = 11, .indexes = {}, .interlaced = true}}};
  for (int y = 0; y < 11; ++y) file.frames[0].indexes.push_back(static_cast<std::uint8_t>(y % 4));
  test::writeGIFFile(gif, file);
  EXPECT_EQ(canvas(*ImageSource::open(gif), 0), "rgbwrgbwrgb");
}

TEST_F(GIFDecoder, KnowsWhetherSomethingCanShowThrough) {
  const GIFFrame whole{.width = 4, .height = 4, .indexes = {0}},
      part{.width = 3, .height = 4, .indexes = {0}};
  GIFFrame clear = whole, cleared = whole;
  clear.transparent = 3;
  cleared.disposal = 2;
  const struct {
    std::vector<GIFFrame> frames;
    bool alpha;
  } cases[] = {{{whole}, false},   {{clear}, true},         {{part}, true},        {{whole, part}, false},
               {{cleared}, false}, {{cleared, part}, true}, {{whole, clear}, true}};
  for (const auto& c : cases) {
    test::writeGIFFile(gif, {.frames = c.frames});
    EXPECT_EQ(propertiesOf(gif).hasAlpha, c.alpha) << &c - cases;
  }
}

TEST_F(GIFDecoder, BoundsTheCanvasesOfAllFrames) {
  test::GIFFile file{.width = 1 << 13, .height = 1 << 13, .frames = {}};
  file.frames.assign(1024, {.indexes = {0}});  // which have as many pixels as we look at
  test::writeGIFFile(gif, file);
  EXPECT_EQ(ImageSource::open(gif)->count(), 1024U);
  file.frames.push_back({.indexes = {0}});
  test::writeGIFFile(gif, file);
  EXPECT_THROW(ImageSource::open(gif), ImageDecodeError);
}

TEST_F(GIFDecoder, ReadsTimingAsStored) {
  for (const int loop : {-1, 0, 1, 65535}) {
    test::GIFFile file{.frames = {}, .loop = loop};
    for (const int delay : {0, 1, 10, 65535}) file.frames.push_back({.indexes = {0}, .delay = delay});
    test::writeGIFFile(gif, file);
    const auto source = ImageSource::open(gif);
    ASSERT_EQ(source->count(), 4U);
    EXPECT_EQ(source->properties(0).loopCount, loop < 0 ? std::nullopt : std::optional<std::int64_t>(loop));
    const double delays[] = {0, 0.01, 0.1, 655.35};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(source->properties(i).delay, delays[i]);
  }
}

TEST_F(GIFDecoder, BearsMissingTrailersAndRefusesMissingData) {
  GIFFrame frame{.width = 40, .height = 40, .indexes = {}};
  for (int i = 0; i < 1600; ++i) frame.indexes.push_back(static_cast<std::uint8_t>(i * i * 31 % 1009 % 4));
  GIFFrame other = frame;
  std::ranges::reverse(other.indexes);
  test::writeGIFFile(gif, {.width = 40, .height = 40, .frames = {frame, other}});
  const std::string whole = files::read(gif);
  const auto open = [&](const std::string& data) { return ImageSource::open(folder.write("b.gif", data)); };
  EXPECT_EQ(open(whole.substr(0, whole.size() - 1))->count(), 2U);
  EXPECT_EQ(open(whole + "behind the trailer")->count(), 2U);
  EXPECT_EQ(open(whole.substr(0, 13 + 12) + ";")->count(), 0U);
  // Cut in the second frame: it is announced, the first can be seen, the second cannot.
  const auto cut = open(whole.substr(0, whole.size() - 40));
  EXPECT_EQ(cut->count(), 2U);
  cut->verify(0);
  EXPECT_THROW(cut->rows(1), ImageDecodeError);
  // What was drawn of a frame that broke off does not pass for the frame before it.
  std::vector<std::uint8_t> row(160);
  cut->rows(0)->read(row);
  const auto first = decoded(gif, 0);
  EXPECT_TRUE(std::equal(row.begin(), row.end(), first.begin()));
  test::expectUndecodable(folder.write("b.gif", whole.substr(0, whole.size() / 3)), "cut in the first frame");
  std::string huge = whole;
  huge.replace(6, 4, "\xFF\xFF\xFF\xFF");
  test::expectUndecodable(folder.write("b.gif", huge), "huge canvas");
  // The size of a frame is judged before its data is read: a few bytes would fill all of it.
  huge = whole;
  huge.replace(huge.find(std::string("\x2C\0\0\0\0", 5)) + 5, 4, "\xFF\xFF\xFF\xFF");
  EXPECT_EQ(test::reasonOf([&] { decoded(folder.write("b.gif", huge)); }), "frame of impossible size");
}

/// The data of a frame of 16 colours, in blocks, as an encoder writes it that goes on with a full table for
/// `deferred` codes before it clears it; 0 is for ever.
std::string deferringLZW(const std::vector<std::uint8_t>& indexes, int deferred) {
  constexpr unsigned clear = 16, end = 17, maximum = 4096;
  std::string bytes;
  unsigned pending = 0, bits = 0, width = 5, next = end + 1, prefix = indexes.at(0);
  int beyond = 0;
  std::map<std::pair<unsigned, unsigned>, unsigned> table;
  const auto put = [&](unsigned code) {
    pending |= code << bits;
    for (bits += width; bits >= 8; bits -= 8, pending >>= 8) bytes += static_cast<char>(pending);
  };
  put(clear);
  for (std::size_t i = 1; i < indexes.size(); ++i) {
    if (const auto known = table.find({prefix, indexes[i]}); known != table.end()) {
      prefix = known->second;
      continue;
    }
    put(prefix);
    if (next < maximum) {
      table[{prefix, indexes[i]}] = next;
      if (next++ == 1U << width) ++width;
    } else if (++beyond == deferred) {
      put(clear);
      table.clear();
      width = 5, next = end + 1, beyond = 0;
    }
    prefix = indexes[i];
  }
  put(prefix);
  put(end);
  bytes += static_cast<char>(pending);
  std::string blocks(1, '\4');
  for (std::size_t at = 0; at < bytes.size(); at += 255) {
    const std::string block = bytes.substr(at, 255);
    blocks += static_cast<char>(block.size()) + block;
  }
  return blocks + '\0';
}

TEST_F(GIFDecoder, ReadsFramesWhoseFullTableIsUsedOn) {
  std::vector<std::uint8_t> noise;
  for (unsigned i = 0, seed = 1; i < 300 * 200; ++i) {
    seed = seed * 1103515245 + 12345;
    noise.push_back(static_cast<std::uint8_t>(seed >> 28));
  }
  std::string colors;
  for (int i = 0; i < 16; ++i) colors += std::string{static_cast<char>(i), '\0', '\x01'};
  for (const int deferred : {0, 1, 1000}) {
    const std::string frame = std::string("\x2C\0\0\0\0\x2C\x01\xC8\0\0", 10) + deferringLZW(noise, deferred);
    const URL url =
        folder.write("a.gif", std::string("GIF89a\x2C\x01\xC8\0\xB3\0\0", 13) + colors + frame + frame + ";");
    for (const std::size_t index : {0U, 1U}) {
      const auto pixels = decoded(url, index);
      ASSERT_EQ(pixels.size(), noise.size() * 4);
      for (std::size_t i = 0; i < noise.size(); ++i) ASSERT_EQ(pixels[i * 4], noise[i]) << i;
    }
  }
}

}  // namespace
}  // namespace tidewell
