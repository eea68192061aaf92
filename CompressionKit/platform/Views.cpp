#include <algorithm>
#include <cmath>
#include <cstring>

#include "CompressionKit/platform/Bitmap.h"

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

/// Averages the area that each pixel of a smaller image covers in the larger one. Rows are first summed up at
/// full width, with the share that they cover of the row to come, and then reduced sideways once.
class AreaAverage {
 public:
  AreaAverage(std::int64_t fromWidth, std::int64_t fromHeight, std::int64_t toWidth, std::int64_t toHeight)
      : toWidth_(toWidth),
        scaleX_(static_cast<double>(fromWidth) / static_cast<double>(toWidth)),
        scaleY_(static_cast<double>(fromHeight) / static_cast<double>(toHeight)),
        sum_(static_cast<std::size_t>(fromWidth) * 4) {}

  /// The first source row, and one past the last, that row `y` of the result needs.
  std::pair<std::int64_t, std::int64_t> sourceRows(std::int64_t y) const {
    const auto last = static_cast<std::int64_t>(std::ceil(static_cast<double>(y + 1) * scaleY_ - 1e-9));
    return {static_cast<std::int64_t>(static_cast<double>(y) * scaleY_ + 1e-9), last};
  }

  /// How much of source row `source` lies in row `y` of the result.
  double share(std::int64_t source, std::int64_t y) const {
    const double from = std::max(static_cast<double>(source), static_cast<double>(y) * scaleY_);
    const double to = std::min(static_cast<double>(source + 1), static_cast<double>(y + 1) * scaleY_);
    return std::max(to - from, 0.0);
  }

  void add(std::span<const std::uint8_t> row, double weight) {
    const auto w = static_cast<float>(weight);
    for (std::size_t i = 0; i < sum_.size(); ++i) sum_[i] += w * static_cast<float>(row[i]);
  }

  void finishRow(std::span<std::uint8_t> result) {
    const auto scale = static_cast<float>(1.0 / (scaleX_ * scaleY_));
    for (std::int64_t x = 0; x < toWidth_; ++x) {
      const double left = static_cast<double>(x) * scaleX_, right = left + scaleX_;
      const auto first = static_cast<std::int64_t>(left + 1e-9);
      const auto last = std::min(static_cast<std::int64_t>(std::ceil(right - 1e-9)),
                                 static_cast<std::int64_t>(sum_.size() / 4));
      float total[4] = {};
      for (std::int64_t i = first; i < last; ++i) {
        const double covered =
            std::min(static_cast<double>(i + 1), right) - std::max(static_cast<double>(i), left);
        const auto weight = static_cast<float>(covered);
        for (std::size_t c = 0; c < 4; ++c) total[c] += weight * sum_[static_cast<std::size_t>(i) * 4 + c];
      }
      for (std::size_t c = 0; c < 4; ++c) {
        result[static_cast<std::size_t>(x) * 4 + c] =
            static_cast<std::uint8_t>(std::min(total[c] * scale + 0.5F, 255.0F));
      }
    }
    std::ranges::fill(sum_, 0.0F);
  }

 private:
  std::int64_t toWidth_;
  double scaleX_, scaleY_;
  std::vector<float> sum_;
};

void average(RowReader& rows, Bitmap& result) {
  AreaAverage average(rows.width(), rows.height(), result.width, result.height);
  std::vector<std::uint8_t> row(static_cast<std::size_t>(rows.width()) * 4);
  std::int64_t read = 0;  // rows read so far; `row` holds the last of them
  for (std::int64_t y = 0; y < result.height; ++y) {
    const auto [first, last] = average.sourceRows(y);
    for (std::int64_t source = first; source < std::min(last, rows.height()); ++source) {
      for (; read <= source; ++read) rows.read(row);
      average.add(row, average.share(source, y));
    }
    average.finishRow(result.row(y));
  }
}

}  // namespace

Bitmap thumbnail(ImageSource& source, std::size_t index, std::int64_t maximumPixelSize,
                 bool applyOrientation) {
  const ImageProperties properties = source.properties(index);
  const std::int64_t longSide = std::max(properties.width, properties.height);
  if (longSide < 1 || maximumPixelSize < 1) throw ImageDecodeError("view of impossible size");
  const double scale = std::min(1.0, static_cast<double>(maximumPixelSize) / static_cast<double>(longSide));
  const auto reduced = [scale](std::int64_t side) {
    return std::max<std::int64_t>(1, std::llround(scale * static_cast<double>(side)));
  };
  Bitmap result = emptyBitmap(reduced(properties.width), reduced(properties.height), properties);
  const auto rows = source.rows(index, std::max(result.width, result.height));
  if (rows->width() == result.width && rows->height() == result.height) {
    for (std::int64_t y = 0; y < result.height; ++y) rows->read(result.row(y));
  } else {
    average(*rows, result);
  }
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
