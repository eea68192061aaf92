// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEICPixels.h"

#include <algorithm>
#include <cstring>

#include "CompressionKit/codecs/Premultiply.h"

namespace tidewell::heif {
namespace {

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
    to[3] = samplesPerPixel_ == 4 ? in[3] : 255;
    for (int component = 0; component < 3; ++component) {
      to[component] = premultiplied_ ? std::min(in[component], to[3]) : in[component];
    }
  }
  if (samplesPerPixel_ == 4 && !premultiplied_) premultiply(out);
}

std::span<const std::uint8_t> RowConverter::straight(std::span<const std::uint8_t> row) {
  if (widened_.empty()) {
    if (!premultiplied_) return row;
    bytes_.assign(row.begin(), row.end());
    for (std::size_t i = 0; i + 3 < bytes_.size(); i += 4) {
      for (std::size_t component = i; component < i + 3; ++component) {
        bytes_[component] = unpremultiplied(bytes_[component], bytes_[i + 3]);
      }
    }
    return bytes_;
  }
  const auto samples = samples16(row);
  if (premultiplied_) {
    for (std::size_t i = 0; i + 3 < samples.size(); i += 4) {
      for (std::size_t component = i; component < i + 3; ++component) {
        const std::uint32_t value = samples[component], alpha = samples[i + 3];
        const std::uint32_t straight = alpha == 0 ? 0 : (value * 65535 + alpha / 2) / alpha;
        samples[component] = static_cast<std::uint16_t>(std::min(straight, 65535U));
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

void RowConverter::straight16(std::span<const std::uint8_t> row, std::span<std::uint16_t> out) {
  const auto bytes = straight(row);
  const bool wide = !widened_.empty();
  const std::size_t count = bytes.size() / (wide ? 2 : 1);
  for (std::size_t from = 0, to = 0; from < count; ++from) {
    out[to++] =
        static_cast<std::uint16_t>(wide ? bytes[from * 2] << 8 | bytes[from * 2 + 1] : bytes[from] * 257);
    if (samplesPerPixel_ == 3 && from % 3 == 2) out[to++] = 65535;
  }
}

namespace {
/// Columns that become rows are gathered this many at a time, so that every row in memory is read in runs.
constexpr std::int64_t bandWidth = 64;
}  // namespace

TurnedRows::TurnedRows(const Pixels& pixels, int orientation)
    : pixels_(pixels),
      swaps_(orientation >= 5),
      mirrored_(orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7),
      lastRowFirst_(orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8) {
  const std::size_t rows = swaps_ ? bandWidth : mirrored_ ? 1 : 0;
  band_.resize(static_cast<std::size_t>(width()) * pixels.bytesPerPixel() * rows);
}

std::span<const std::uint8_t> TurnedRows::row(std::int64_t y) {
  const std::size_t size = pixels_.bytesPerPixel();
  const std::size_t rowBytes = static_cast<std::size_t>(width()) * size;
  if (swaps_) {
    const std::int64_t first = y / bandWidth * bandWidth;
    if (first != bandStart_) fillBand(first);
    return std::span(band_).subspan(static_cast<std::size_t>(y - first) * rowBytes, rowBytes);
  }
  const auto stored = pixels_.row(lastRowFirst_ ? pixels_.height - 1 - y : y);
  if (!mirrored_) return stored;
  for (std::size_t from = 0, to = rowBytes; from < rowBytes; from += size) {
    to -= size;
    std::memcpy(&band_[to], &stored[from], size);
  }
  return band_;
}

void TurnedRows::fillBand(std::int64_t first) {
  const std::size_t size = pixels_.bytesPerPixel();
  const std::size_t rowBytes = static_cast<std::size_t>(width()) * size;
  const std::int64_t columns = std::min(bandWidth, height() - first);
  for (std::int64_t position = 0; position < width(); ++position) {
    const auto stored = pixels_.row(mirrored_ ? pixels_.height - 1 - position : position);
    for (std::int64_t column = 0; column < columns; ++column) {
      const std::int64_t x = lastRowFirst_ ? pixels_.width - 1 - first - column : first + column;
      std::memcpy(
          &band_[static_cast<std::size_t>(column) * rowBytes + static_cast<std::size_t>(position) * size],
          &stored[static_cast<std::size_t>(x) * size], size);
    }
  }
  bandStart_ = first;
}

}  // namespace tidewell::heif
