#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// The pixels of a frame as indexes into its own colours. Such a file is a quarter of the size, and one
/// without alpha costs the metric half the time.
class IndexedFrame {
 public:
  /// Takes all rows of a frame; false when it has more colours than a palette holds, as a frame that shows
  /// pixels of several others may.
  bool take(RowReader& rows) {
    colors_.clear();
    slots_.fill(Slot{});
    row_.resize(static_cast<std::size_t>(rows.width()) * 4);
    indexes_.resize(static_cast<std::size_t>(rows.width() * rows.height()));
    std::uint8_t* to = indexes_.data();
    for (std::int64_t y = 0; y < rows.height(); ++y) {
      rows.read(row_);
      std::uint32_t last = 0;
      std::optional<std::uint8_t> index;
      for (std::size_t i = 0; i < row_.size(); i += 4) {
        std::uint32_t color = 0;
        std::memcpy(&color, row_.data() + i, 4);
        if (!index || color != last) index = indexOf(color);
        if (!index) return false;
        last = color;
        *to++ = *index;
      }
    }
    return true;
  }

  const std::vector<std::array<std::uint8_t, 4>>& colors() const { return colors_; }
  std::span<const std::uint8_t> row(std::int64_t y, std::int64_t width) const {
    return std::span(indexes_).subspan(static_cast<std::size_t>(y * width), static_cast<std::size_t>(width));
  }

 private:
  static constexpr std::size_t maximumColors = 256;
  struct Slot {
    std::uint32_t color = 0;
    bool used = false;
    std::uint8_t index = 0;
  };

  std::optional<std::uint8_t> indexOf(std::uint32_t color) {
    std::size_t at = color * 0x9E3779B1U >> 22;
    while (slots_[at].used && slots_[at].color != color) at = (at + 1) % slots_.size();
    if (!slots_[at].used) {
      if (colors_.size() == maximumColors) return std::nullopt;
      slots_[at] = {.color = color, .used = true, .index = static_cast<std::uint8_t>(colors_.size())};
      std::memcpy(colors_.emplace_back().data(), &color, 4);  // a GIF's pixels are opaque or nothing
    }
    return slots_[at].index;
  }

  std::vector<std::array<std::uint8_t, 4>> colors_;
  std::array<Slot, 1024> slots_;
  std::vector<std::uint8_t> row_, indexes_;
};

/// Frames are written as they are while all of them together take no more than this.
constexpr std::int64_t maximumStoredBytes = std::int64_t{256} << 20;

void exportFrame(ImageSource& gif, std::size_t index, const URL& url, IndexedFrame& frame,
                 const StopToken& stop) {
  auto rows = gif.rows(index);
  PNGWriter::Options options{
      .width = rows->width(), .height = rows->height(), .hasAlpha = true, .bitsPerSample = 8, .color = {}};
  const bool indexed = frame.take(*rows);
  if (indexed) {
    options.palette = frame.colors();
    options.stored = options.width * options.height <=
                     maximumStoredBytes / static_cast<std::int64_t>(std::max<std::size_t>(gif.count(), 1));
  }
  std::unique_ptr<PNGWriter> writer;
  try {
    writer = std::make_unique<PNGWriter>(url, options);
  } catch (const FileError&) {
    throw CompressionError::fileOperation("无法创建动图验证帧");
  }
  if (indexed) {
    for (std::int64_t y = 0; y < options.height; ++y) {
      stop.throwIfStopped();
      writer->writeStraightRow(frame.row(y, options.width));
    }
  } else {
    rows = gif.rows(index);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(options.width) * 4);
    for (std::int64_t y = 0; y < options.height; ++y) {
      rows->read(row);
      writer->writeRow(row);
    }
  }
  writer->finish();
}

}  // namespace

std::vector<URL> ImageFacts::exportGIFFrames(const URL& gif, const URL& directory, const StopToken& stop) {
  const auto source = decoding([&] { return ImageSource::open(gif, stop); });
  files::createDirectories(directory, 0777, files::Durability::cached);
  std::vector<URL> frames;
  IndexedFrame frame;
  for (std::size_t i = 0; i < source->count(); ++i) {
    frames.push_back(directory.appending("frame-" + std::to_string(i) + ".png"));
    decoding([&] { exportFrame(*source, i, frames.back(), frame, stop); });
  }
  return frames;
}

}  // namespace tidewell
