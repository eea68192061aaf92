#include "CompressionKit/platform/HEICPixels.h"

#include <algorithm>
#include <cstring>

namespace tidewell::heif {
namespace {

std::uint8_t premultiply(std::uint8_t value, std::uint8_t alpha) {
  return static_cast<std::uint8_t>((value * alpha + 127) / 255);
}

/// A straight colour of a premultiplied one, both up to `maximum`.
std::uint32_t divided(std::uint32_t value, std::uint32_t alpha, std::uint32_t maximum) {
  return alpha == 0 ? 0 : std::min((value * maximum + alpha / 2) / alpha, maximum);
}

std::uint8_t narrowed(std::uint16_t value) {
  return static_cast<std::uint8_t>((value * 255U + 32767) / 65535);
}

}  // namespace

RowConverter::RowConverter(const Pixels& pixels)
    : samplesPerPixel_(static_cast<std::size_t>(pixels.samplesPerPixel)),
      bits_(pixels.bits),
      premultiplied_(pixels.premultiplied) {
  if (pixels.hdr) standardRange_.emplace(pixels.hdr->transfer, pixels.hdr->primaries, bits_, pixels.peak);
  if (bits_ > 8 || standardRange_) {
    widened_.resize(std::size_t{1} << bits_);
    const std::size_t maximum = widened_.size() - 1;
    for (std::size_t code = 0; code <= maximum; ++code) {
      widened_[code] = static_cast<std::uint16_t>((code * 65535 + maximum / 2) / maximum);
    }
  }
}

std::span<std::uint16_t> RowConverter::samples16(std::span<const std::uint8_t> row) {
  samples_.resize(bits_ > 8 ? row.size() / 2 : row.size());
  const std::size_t maximum = widened_.size() - 1;
  for (std::size_t i = 0; i < samples_.size(); ++i) {
    const std::size_t code = bits_ > 8 ? static_cast<std::size_t>(row[i * 2] << 8 | row[i * 2 + 1]) : row[i];
    const bool isColor = i % samplesPerPixel_ < 3;
    samples_[i] =
        standardRange_ && isColor ? static_cast<std::uint16_t>(code) : widened_[std::min(code, maximum)];
  }
  if (standardRange_) standardRange_->convert(samples_, samplesPerPixel_);
  return samples_;
}

void RowConverter::premultiplied8(std::span<const std::uint8_t> row, std::span<std::uint8_t> out) {
  std::span<const std::uint8_t> source = row;
  if (!widened_.empty()) {
    const auto samples = samples16(row);
    bytes_.resize(samples.size());
    std::transform(samples.begin(), samples.end(), bytes_.begin(), narrowed);
    source = bytes_;
  }
  const std::size_t pixels = source.size() / samplesPerPixel_;
  for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
    const std::uint8_t* in = &source[pixel * samplesPerPixel_];
    std::uint8_t* to = &out[pixel * 4];
    const std::uint8_t alpha = samplesPerPixel_ == 4 ? in[3] : 255;
    for (int component = 0; component < 3; ++component) {
      to[component] = premultiplied_ ? std::min(in[component], alpha) : premultiply(in[component], alpha);
    }
    to[3] = alpha;
  }
}

std::span<const std::uint8_t> RowConverter::straight(std::span<const std::uint8_t> row) {
  if (widened_.empty()) {
    if (!premultiplied_) return row;
    bytes_.assign(row.begin(), row.end());
    for (std::size_t i = 0; i + 3 < bytes_.size(); i += 4) {
      for (std::size_t component = i; component < i + 3; ++component) {
        bytes_[component] = static_cast<std::uint8_t>(divided(bytes_[component], bytes_[i + 3], 255));
      }
    }
    return bytes_;
  }
  const auto samples = samples16(row);
  if (premultiplied_) {
    for (std::size_t i = 0; i + 3 < samples.size(); i += 4) {
      for (std::size_t component = i; component < i + 3; ++component) {
        samples[component] = static_cast<std::uint16_t>(divided(samples[component], samples[i + 3], 65535));
      }
    }
  }
  bytes_.resize(samples.size() * 2);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    bytes_[i * 2] = static_cast<std::uint8_t>(samples[i] >> 8);
    bytes_[i * 2 + 1] = static_cast<std::uint8_t>(samples[i]);
  }
  return bytes_;
}

void forEachUprightRow(const Pixels& pixels, int orientation,
                       const std::function<void(std::span<const std::uint8_t>)>& use) {
  const std::size_t size = pixels.bytesPerPixel();
  const std::int64_t width = pixels.width;
  const std::int64_t height = pixels.height;
  if (orientation < 5) {
    const bool upsideDown = orientation == 3 || orientation == 4;
    const bool mirrored = orientation == 2 || orientation == 3;
    std::vector<std::uint8_t> reversed(mirrored ? static_cast<std::size_t>(width) * size : 0);
    for (std::int64_t y = 0; y < height; ++y) {
      const auto row = pixels.row(upsideDown ? height - 1 - y : y);
      for (std::size_t from = 0, to = reversed.size(); from < reversed.size(); from += size) {
        to -= size;
        std::memcpy(&reversed[to], &row[from], size);
      }
      use(mirrored ? std::span<const std::uint8_t>(reversed) : row);
    }
    return;
  }
  // Columns become rows. A band of columns at a time, so that every stored row is read in runs.
  const bool fromRight = orientation == 7 || orientation == 8;
  const bool fromBottom = orientation == 6 || orientation == 7;
  constexpr std::int64_t bandWidth = 64;
  const std::size_t rowBytes = static_cast<std::size_t>(height) * size;
  std::vector<std::uint8_t> band(rowBytes * bandWidth);
  for (std::int64_t first = 0; first < width; first += bandWidth) {
    const std::int64_t columns = std::min(bandWidth, width - first);
    for (std::int64_t position = 0; position < height; ++position) {
      const auto row = pixels.row(fromBottom ? height - 1 - position : position);
      for (std::int64_t column = 0; column < columns; ++column) {
        const std::int64_t x = fromRight ? width - 1 - first - column : first + column;
        std::memcpy(
            &band[static_cast<std::size_t>(column) * rowBytes + static_cast<std::size_t>(position) * size],
            &row[static_cast<std::size_t>(x) * size], size);
      }
    }
    for (std::int64_t column = 0; column < columns; ++column) {
      use(std::span(band).subspan(static_cast<std::size_t>(column) * rowBytes, rowBytes));
    }
  }
}

}  // namespace tidewell::heif
