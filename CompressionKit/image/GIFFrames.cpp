// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/GIFFrames.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

using Area = GIFAnimation::Area;
using Canvas = GIFAnimation::Canvas;

std::size_t offsetOf(const Canvas& canvas, std::int64_t x, std::int64_t y) {
  return static_cast<std::size_t>(y * canvas.width + x);
}

/// Frames are written as they are while all of them together take no more than this.
constexpr std::int64_t maximumStoredBytes = std::int64_t{256} << 20;

}  // namespace

/// The pixels of a frame as indexes into a few colours. Such a file is a quarter of the size, and one without
/// alpha costs the metric half the time. Indexes and colours stay from frame to frame, so that only what has
/// changed is looked at.
class GIFFrames::Indexes {
 public:
  /// Takes frame `number`; false when it has more colours than a palette holds, as a frame that shows pixels
  /// of several others may.
  bool take(const Canvas& canvas, std::size_t number) {
    const bool follows = taken_ && *taken_ + 1 == number;
    taken_.reset();
    if (!follows ||
        !std::ranges::all_of(canvas.changed, [&](const Area& a) { return takeArea(canvas, a); })) {
      // Once more without the colours of the frames before.
      colors_.clear();
      clear_.reset();
      slots_.assign(slotCount, Slot{});
      indexes_.resize(canvas.pixels.size() / 4);
      if (!takeArea(canvas, {.width = canvas.width, .height = canvas.height})) return false;
    }
    taken_ = number;
    return true;
  }

  /// Has alpha only where the frame shows it.
  std::vector<std::array<std::uint8_t, 4>> palette() const {
    auto palette = colors_;
    if (clear_ && !std::memchr(indexes_.data(), *clear_, indexes_.size())) palette[*clear_][3] = 255;
    return palette;
  }
  std::span<const std::uint8_t> row(std::int64_t y, std::int64_t width) const {
    return std::span(indexes_).subspan(static_cast<std::size_t>(y * width), static_cast<std::size_t>(width));
  }

 private:
  static constexpr std::size_t maximumColors = 256;
  static constexpr int slotBits = 14;  // so many that hardly any two colours meet
  static constexpr std::size_t slotCount = std::size_t{1} << slotBits;
  /// No pixel: it would be clear, yet coloured.
  static constexpr std::uint32_t noColor = std::endian::native == std::endian::little ? 1 : 1U << 31;
  struct Slot {
    std::uint32_t color = noColor;
    std::uint8_t index = 0;
  };

  bool takeArea(const Canvas& canvas, const Area& area) {
    for (std::int64_t y = area.top; y < area.top + area.height; ++y) {
      const std::size_t at = offsetOf(canvas, area.left, y);
      const std::uint8_t* from = canvas.pixels.data() + at * 4;
      std::uint8_t* to = indexes_.data() + at;
      for (std::int64_t x = 0; x < area.width; ++x, from += 4, ++to) {
        std::uint32_t color = 0;
        std::memcpy(&color, from, 4);
        const Slot* slot = &slots_[color * 0x9E3779B1U >> (32 - slotBits)];
        if (slot->color != color && !(slot = slotOf(color))) return false;
        *to = slot->index;
      }
    }
    return true;
  }

  /// Null when there are too many colours.
  const Slot* slotOf(std::uint32_t color) {
    std::size_t at = color * 0x9E3779B1U >> (32 - slotBits);
    while (slots_[at].color != noColor && slots_[at].color != color) at = (at + 1) % slotCount;
    if (slots_[at].color == noColor) {
      if (colors_.size() == maximumColors) return nullptr;
      const auto index = static_cast<std::uint8_t>(colors_.size());
      slots_[at] = {.color = color, .index = index};
      std::memcpy(colors_.emplace_back().data(), &color, 4);  // a GIF's pixels are opaque or nothing
      if (color == 0) clear_ = index;
    }
    return &slots_[at];
  }

  std::optional<std::size_t> taken_;  ///< the frame that the indexes show
  std::vector<std::array<std::uint8_t, 4>> colors_;
  std::optional<std::uint8_t> clear_;  ///< the colour that is nothing
  std::vector<Slot> slots_;
  std::vector<std::uint8_t> indexes_;
};

URL GIFFrames::file(const URL& directory, std::size_t index) {
  return directory.appending("frame-" + std::to_string(index) + ".png");
}

GIFFrames::GIFFrames(const AnimationFile& gif, const StopToken& stop)
    : stop_(stop),
      source_(decoding([&] { return gif.open(stop); })),
      count_(source_->count()),
      indexes_(std::make_unique<Indexes>()) {}

GIFFrames::~GIFFrames() = default;

void GIFFrames::next() {
  canvas_ = decoding([this] { return source_->canvas(next_); });
  ++next_;
}

void GIFFrames::write(const URL& url) {
  PNGWriter::Options options{
      .width = canvas_.width, .height = canvas_.height, .hasAlpha = true, .bitsPerSample = 8, .color = {}};
  const bool indexed = indexes_->take(canvas_, next_ - 1);
  if (indexed) {
    options.palette = indexes_->palette();
    options.stored = options.width * options.height <= maximumStoredBytes / static_cast<std::int64_t>(count_);
  }
  std::optional<PNGWriter> writer;
  try {
    writer.emplace(url, options);
  } catch (const FileError&) {
    throw CompressionError::fileOperation("无法创建动图验证帧");
  }
  decoding([&] {
    for (std::int64_t y = 0; y < options.height; ++y) {
      stop_.throwIfStopped();
      writer->writeStraightRow(indexed ? indexes_->row(y, options.width)
                                       : canvas_.pixels.subspan(offsetOf(canvas_, 0, y) * 4,
                                                                static_cast<std::size_t>(options.width) * 4));
    }
    writer->finish();
  });
}

bool canvases::agreeInChanges(const Canvas& one, const Canvas& other, Compared compared) {
  if (one.width != other.width || one.height != other.height) return false;
  constexpr std::uint32_t alpha = std::endian::native == std::endian::little ? 0xFF000000U : 0xFFU;
  const std::uint32_t mask = compared == Compared::alpha ? alpha : 0xFFFFFFFFU;
  const auto agree = [&](const Area& area) {
    for (std::int64_t y = area.top; y < area.top + area.height; ++y) {
      const std::size_t at = offsetOf(one, area.left, y) * 4;
      const std::uint8_t *a = one.pixels.data() + at, *b = other.pixels.data() + at;
      std::uint32_t difference = 0;
      for (std::int64_t x = 0; x < area.width; ++x) {
        std::uint32_t first = 0, second = 0;
        std::memcpy(&first, a + x * 4, 4);
        std::memcpy(&second, b + x * 4, 4);
        difference |= first ^ second;
      }
      if ((difference & mask) != 0) return false;
    }
    return true;
  };
  return std::ranges::all_of(one.changed, agree) && std::ranges::all_of(other.changed, agree);
}

std::vector<URL> ImageFacts::exportGIFFrames(const URL& gif, const URL& directory, const StopToken& stop) {
  GIFFrames animation({gif}, stop);
  files::createDirectories(directory, 0777, files::Durability::cached);
  std::vector<URL> frames;
  for (std::size_t i = 0; i < animation.count(); ++i) {
    frames.push_back(GIFFrames::file(directory, i));
    animation.next();
    animation.write(frames.back());
  }
  return frames;
}

}  // namespace tidewell
