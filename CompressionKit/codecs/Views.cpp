// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/Views.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <utility>

namespace tidewell::views {
namespace {

Bitmap emptyBitmap(std::int64_t width, std::int64_t height, const ImageProperties& properties) {
  if (width < 1 || height < 1 || width * 4 > ImageLimits::maximumResidentBytes / height) {
    throw ImageDecodeError("view of impossible size");
  }
  Bitmap bitmap{.width = width,
                .height = height,
                .pixels = std::vector<std::uint8_t>(static_cast<std::size_t>(width * height) * 4),
                .hasAlpha = properties.hasAlpha,
                .color = properties.color};
  return bitmap;
}

/// What one pixel of a smaller image covers of a line of the larger one: the share of each pixel; the sum
/// is 1.
struct Span {
  Span(std::int64_t index, double scale, std::int64_t lineLength) {
    const double start = static_cast<double>(index) * scale, end = start + scale;
    first = static_cast<std::int64_t>(start + 1e-9);
    last = std::min(static_cast<std::int64_t>(std::ceil(end - 1e-9)), lineLength) - 1;
    const auto share = [&](std::int64_t k) {
      const double covered =
          std::min(static_cast<double>(k + 1), end) - std::max(static_cast<double>(k), start);
      return static_cast<float>(std::max(covered, 0.0) / scale);
    };
    ofFirst = share(first);
    ofLast = share(last);
    ofOthers = static_cast<float>(1 / scale);
  }

  float at(std::int64_t k) const { return k == first ? ofFirst : k == last ? ofLast : ofOthers; }

  std::int64_t first, last;
  float ofFirst, ofOthers, ofLast;
};

/// Averages the area that each pixel of a smaller image covers in the larger one. Rows are first summed up at
/// full width, with the share that they cover of the row to come, and then reduced sideways once.
class AreaAverage {
 public:
  AreaAverage(std::int64_t fromWidth, std::int64_t toWidth) : sum_(static_cast<std::size_t>(fromWidth) * 4) {
    const double scale = static_cast<double>(fromWidth) / static_cast<double>(toWidth);
    columns_.reserve(static_cast<std::size_t>(toWidth));
    for (std::int64_t x = 0; x < toWidth; ++x) columns_.emplace_back(x, scale, fromWidth);
  }

  void add(std::span<const std::uint8_t> row, float weight) {
    float* sum = sum_.data();
    if (std::exchange(isEmpty_, false)) {
      for (const std::uint8_t value : row) *sum++ = weight * static_cast<float>(value);
    } else {
      for (const std::uint8_t value : row) *sum++ += weight * static_cast<float>(value);
    }
  }

  void finishRow(std::span<std::uint8_t> result) {
    std::uint8_t* to = result.data();
    for (const Span& column : columns_) {
      const float* from = sum_.data() + column.first * 4;
      Channels total = Channels{0.5F, 0.5F, 0.5F, 0.5F} + column.ofFirst * channels(from);
      for (std::int64_t x = column.first + 1; x < column.last; ++x) {
        total += column.ofOthers * channels(from += 4);
      }
      if (column.last > column.first) total += column.ofLast * channels(from + 4);
      const auto values = __builtin_convertvector(total, Integers);
      for (int c = 0; c < 4; ++c) *to++ = static_cast<std::uint8_t>(std::min(values[c], 255));
    }
    isEmpty_ = true;
  }

 private:
  // GCC's and Clang's vectors, for the compilers do not see that four sums are one.
  using Channels [[gnu::vector_size(16)]] = float;
  using Integers [[gnu::vector_size(16)]] = std::int32_t;

  static Channels channels(const float* from) {
    Channels result;
    std::memcpy(&result, from, sizeof result);
    return result;
  }

  std::vector<Span> columns_;
  std::vector<float> sum_;
  bool isEmpty_ = true;
};

/// Looks at each row that is read, in order.
using RowObserver = std::function<void(std::int64_t y, std::span<const std::uint8_t> row)>;

void average(RowReader& rows, Bitmap& result, const RowObserver& observe) {
  AreaAverage average(rows.width(), result.width);
  const double scale = static_cast<double>(rows.height()) / static_cast<double>(result.height);
  std::vector<std::uint8_t> row(static_cast<std::size_t>(rows.width()) * 4);
  std::int64_t read = 0;  // rows read so far; `row` holds the last of them
  for (std::int64_t y = 0; y < result.height; ++y) {
    const Span line(y, scale, rows.height());
    for (std::int64_t source = line.first; source <= line.last; ++source) {
      for (; read <= source; ++read) {
        rows.read(row);
        observe(read, row);
      }
      average.add(row, line.at(source));
    }
    average.finishRow(result.row(y));
  }
}

/// An image of the size that a thumbnail has, without pixels.
Bitmap emptyThumbnail(const ImageProperties& properties, std::int64_t maximumPixelSize) {
  const std::int64_t longSide = std::max(properties.width, properties.height);
  if (longSide < 1 || maximumPixelSize < 1) throw ImageDecodeError("view of impossible size");
  const double scale = std::min(1.0, static_cast<double>(maximumPixelSize) / static_cast<double>(longSide));
  const auto reduced = [scale](std::int64_t side) {
    return std::max<std::int64_t>(1, std::llround(scale * static_cast<double>(side)));
  };
  return emptyBitmap(reduced(properties.width), reduced(properties.height), properties);
}

/// Reads all of `rows`.
void reduce(RowReader& rows, Bitmap& result, const RowObserver& observe) {
  if (rows.width() != result.width || rows.height() != result.height) return average(rows, result, observe);
  for (std::int64_t y = 0; y < result.height; ++y) {
    rows.read(result.row(y));
    observe(y, result.row(y));
  }
}

}  // namespace

Bitmap thumbnail(ImageSource& source, std::size_t index, std::int64_t maximumPixelSize,
                 bool applyOrientation) {
  const ImageProperties properties = source.properties(index);
  Bitmap result = emptyThumbnail(properties, maximumPixelSize);
  const auto rows = source.rows(index, std::max(result.width, result.height));
  reduce(*rows, result, [](std::int64_t, std::span<const std::uint8_t>) {});
  return applyOrientation ? upright(std::move(result), properties.orientation.value_or(1)) : result;
}

Bitmap crop(ImageSource& source, std::size_t index, std::int64_t x, std::int64_t y, std::int64_t width,
            std::int64_t height) {
  const auto rows = source.rows(index);
  if (x < 0 || y < 0 || width > rows->width() - x || height > rows->height() - y) {
    throw ImageDecodeError("crop outside the image");
  }
  Bitmap result = emptyBitmap(width, height, source.properties(index));
  std::vector<std::uint8_t> row(static_cast<std::size_t>(rows->width()) * 4);
  if (y > 0) rows->skip(y);
  for (std::int64_t i = 0; i < height; ++i) {
    rows->read(row);
    std::memcpy(result.row(i).data(), row.data() + x * 4, static_cast<std::size_t>(width) * 4);
  }
  return result;
}

Pair overviewAndDetail(ImageSource& source, std::size_t index, std::int64_t overviewSide,
                       std::int64_t detailSide) {
  const ImageProperties properties = source.properties(index);
  const std::int64_t side = std::min({properties.width, properties.height, detailSide});
  const std::int64_t left = (properties.width - side) / 2, top = (properties.height - side) / 2;
  Pair result{.overview = emptyThumbnail(properties, overviewSide), .detail = {}};
  auto rows = source.rowsKeeping(index, std::max(result.overview.width, result.overview.height),
                                 {.x = left, .y = top, .width = side, .height = side});
  // Rows that come at full size serve both.
  const bool serveBoth = rows->width() == properties.width && rows->height() == properties.height;
  result.detail = emptyBitmap(side, side, properties);
  reduce(*rows, result.overview, [&](std::int64_t y, std::span<const std::uint8_t> row) {
    if (!serveBoth || y < top || y >= top + side) return;
    const std::span<std::uint8_t> to = result.detail.row(y - top);
    std::memcpy(to.data(), row.data() + left * 4, to.size());
  });
  const bool hasDetail = serveBoth || rows->readKept(result.detail.pixels);
  rows.reset();
  source.verify(index);
  if (!hasDetail) result.detail = crop(source, index, left, top, side, side);
  return result;
}

Bitmap upright(Bitmap bitmap, int orientation) {
  if (orientation < 2 || orientation > 8) return bitmap;
  const bool turned = orientation >= 5;
  Bitmap result{.width = turned ? bitmap.height : bitmap.width,
                .height = turned ? bitmap.width : bitmap.height,
                .pixels = std::vector<std::uint8_t>(bitmap.pixels.size()),
                .hasAlpha = bitmap.hasAlpha,
                .color = bitmap.color};
  // Exif 2.32, tag 0x0112: where the stored row 0 and column 0 are shown.
  const bool flipX = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool flipY = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  for (std::int64_t y = 0; y < result.height; ++y) {
    std::uint8_t* to = result.row(y).data();
    for (std::int64_t x = 0; x < result.width; ++x, to += 4) {
      std::int64_t fromX = turned ? y : x, fromY = turned ? x : y;
      if (flipX) fromX = bitmap.width - 1 - fromX;
      if (flipY) fromY = bitmap.height - 1 - fromY;
      std::memcpy(to, bitmap.pixels.data() + (fromY * bitmap.width + fromX) * 4, 4);
    }
  }
  return result;
}

}  // namespace tidewell::views
