#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "CompressionKit/platform/Files.h"
#include "support/Decoding.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::decoded;
using test::expectUndecodable;
using test::propertiesOf;
using test::TemporaryFolder;

/// The canvas as one letter a pixel: r, g, b, w, or "." for nothing.
std::string canvas(const URL& url, std::size_t index) {
  const auto pixels = decoded(url, index);
  std::string text;
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    const auto* p = pixels.data() + i;
    text += p[3] == 0 ? '.' : p[0] && p[1] ? 'w' : p[0] ? 'r' : p[1] ? 'g' : 'b';
  }
  return text;
}

TEST(GIFDecoder, ComposesFrames) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = 3;
  file.height = 2;
  const auto frame = [](int left, int top, int width, int height, std::vector<std::uint8_t> indexes,
                        int disposal) {
    test::GIFFrame result;
    result.left = left, result.top = top, result.width = width, result.height = height;
    result.indexes = std::move(indexes);
    result.disposal = disposal;
    return result;
  };
  file.frames = {frame(0, 0, 3, 2, {0}, 1),         // all red, stays
                 frame(1, 0, 1, 2, {1}, 2),         // a green column, cleared afterwards
                 frame(0, 0, 2, 1, {2}, 3),         // two blue pixels, taken back afterwards
                 frame(2, 1, 4, 4, {3}, 0),         // white, mostly outside the screen
                 frame(0, 0, 3, 1, {0, 1, 2}, 0)};  // with a transparent colour
  file.frames[4].transparent = 1;
  test::GIFFrame local = frame(0, 1, 1, 1, {1}, 0);
  local.palette = {{0, 0, 0, 255}, {255, 255, 255, 255}};
  file.frames.push_back(local);
  test::writeGIFFile(folder / "a.gif", file);
  const std::string expected[] = {"rrrrrr", "rgrrgr", "bbrr.r", "r.rr.w", "r.br.w", "r.bw.w"};
  for (const std::size_t index : {0, 1, 2, 3, 4, 5, 2, 0, 5}) {  // forwards, then in any order
    EXPECT_EQ(canvas(folder / "a.gif", index), expected[index]) << index;
  }
  const auto source = ImageSource::open(folder / "a.gif");
  for (const std::size_t index : {4, 1}) {
    std::vector<std::uint8_t> row(12);
    const auto rows = source->rows(index);
    rows->skip(1);
    rows->read(row);
  }
  EXPECT_TRUE(propertiesOf(folder / "a.gif").hasAlpha);
}

TEST(GIFDecoder, KnowsWhetherSomethingCanShowThrough) {
  const TemporaryFolder folder;
  test::GIFFrame whole;
  whole.width = whole.height = 4;
  whole.indexes = {0};
  test::GIFFrame clear = whole, part = whole, cleared = whole;
  clear.transparent = 3;
  part.width = 3;
  cleared.disposal = 2;
  const struct {
    std::vector<test::GIFFrame> frames;
    bool alpha;
  } cases[] = {{{whole}, false},   {{clear}, true},         {{part}, true},        {{whole, part}, false},
               {{cleared}, false}, {{cleared, part}, true}, {{whole, clear}, true}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    test::GIFFile file;
    file.frames = cases[i].frames;
    test::writeGIFFile(folder / "a.gif", file);
    EXPECT_EQ(propertiesOf(folder / "a.gif").hasAlpha, cases[i].alpha) << i;
  }
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

TEST(GIFDecoder, ReadsFramesWhoseFullTableIsUsedOn) {
  const TemporaryFolder folder;
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

TEST(GIFDecoder, ReadsInterlacedFrames) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = 1;
  file.height = 11;
  test::GIFFrame frame;
  frame.height = 11;
  for (int y = 0; y < 11; ++y) frame.indexes.push_back(static_cast<std::uint8_t>(y % 4));
  frame.interlaced = true;
  file.frames = {frame};
  test::writeGIFFile(folder / "a.gif", file);
  EXPECT_EQ(canvas(folder / "a.gif", 0), "rgbwrgbwrgb");
}

TEST(GIFDecoder, BoundsTheCanvasesOfAllFrames) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = file.height = 1 << 13;  // 1,024 such frames have as many pixels as we look at
  test::GIFFrame frame;
  frame.indexes = {0};
  file.frames.assign(1024, frame);
  test::writeGIFFile(folder / "a.gif", file);
  EXPECT_EQ(ImageSource::open(folder / "a.gif")->count(), 1024U);
  file.frames.push_back(frame);
  test::writeGIFFile(folder / "a.gif", file);
  EXPECT_THROW(ImageSource::open(folder / "a.gif"), ImageDecodeError);
}

TEST(GIFDecoder, ReadsTimingAsStored) {
  const TemporaryFolder folder;
  for (const int loop : {-1, 0, 1, 65535}) {
    test::GIFFile file;
    file.loop = loop;
    for (const int delay : {0, 1, 10, 65535}) {
      test::GIFFrame frame;
      frame.indexes = {0};
      frame.delay = delay;
      file.frames.push_back(frame);
    }
    test::writeGIFFile(folder / "a.gif", file);
    const auto source = ImageSource::open(folder / "a.gif");
    ASSERT_EQ(source->count(), 4U);
    EXPECT_EQ(source->properties(0).loopCount, loop < 0 ? std::nullopt : std::optional<std::int64_t>(loop));
    const double delays[] = {0, 0.01, 0.1, 655.35};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(source->properties(i).delay, delays[i]);
  }
}

TEST(GIFDecoder, BearsMissingTrailersAndRefusesMissingData) {
  const TemporaryFolder folder;
  test::GIFFile file;
  file.width = file.height = 40;
  test::GIFFrame frame;
  frame.width = frame.height = 40;
  for (int i = 0; i < 1600; ++i) frame.indexes.push_back(static_cast<std::uint8_t>(i * i * 31 % 1009 % 4));
  test::GIFFrame other = frame;
  std::ranges::reverse(other.indexes);
  file.frames = {frame, other};
  test::writeGIFFile(folder / "a.gif", file);
  const std::string whole = files::read(folder / "a.gif");
  EXPECT_EQ(ImageSource::open(folder.write("b.gif", whole.substr(0, whole.size() - 1)))->count(), 2U);
  EXPECT_EQ(ImageSource::open(folder.write("c.gif", whole + "behind the trailer"))->count(), 2U);
  // Cut in the second frame: it is announced, the first can be seen, the second cannot.
  const URL cut = folder.write("d.gif", whole.substr(0, whole.size() - 40));
  EXPECT_EQ(ImageSource::open(cut)->count(), 2U);
  ImageSource::open(cut)->verify(0);
  EXPECT_THROW(decoded(cut, 1), ImageDecodeError);
  // What was drawn of a frame that broke off does not pass for the frame before it.
  const auto source = ImageSource::open(cut);
  EXPECT_THROW(source->rows(1), ImageDecodeError);
  std::vector<std::uint8_t> row(160);
  source->rows(0)->read(row);
  const auto first = decoded(cut, 0);
  EXPECT_TRUE(std::equal(row.begin(), row.end(), first.begin()));
  expectUndecodable(folder.write("e.gif", whole.substr(0, whole.size() / 3)), "cut in the first frame");
  const URL none = folder.write("f.gif", whole.substr(0, 13 + 12) + ";");
  EXPECT_EQ(ImageSource::open(none)->count(), 0U);
  std::string huge = whole;
  huge.replace(6, 4, "\xFF\xFF\xFF\xFF");
  expectUndecodable(folder.write("g.gif", huge), "huge canvas");
  // The size of a frame is judged before its data is read: a few bytes would fill all of it.
  huge = whole;
  huge.replace(huge.find(std::string("\x2C\0\0\0\0", 5)) + 5, 4, "\xFF\xFF\xFF\xFF");
  try {
    decoded(folder.write("h.gif", huge));
    ADD_FAILURE();
  } catch (const ImageDecodeError& error) {
    EXPECT_EQ(error.reason(), "frame of impossible size");
  }
}

}  // namespace
}  // namespace tidewell
