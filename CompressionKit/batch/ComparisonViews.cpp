// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/ComparisonViews.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <utility>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

constexpr std::size_t channels = 4;
/// Between two pictures.
constexpr std::int64_t gap = 8;

using Row = std::span<const std::uint8_t>;

/// The largest difference of a channel, alpha among them.
int difference(Row one, Row other, std::size_t x) {
  int largest = 0;
  for (std::size_t i = x * channels; i < (x + 1) * channels; ++i) {
    largest = std::max(largest, std::abs(int{one[i]} - int{other[i]}));
  }
  return largest;
}

void appendOpaque(std::vector<std::uint8_t>& to, Row row) {
  // What is see-through shows black, which a premultiplied colour is over black.
  for (std::size_t i = 0; i < row.size(); i += channels) {
    to.insert(to.end(), {row[i], row[i + 1], row[i + 2], 255});
  }
}

void appendGap(std::vector<std::uint8_t>& to) {
  for (std::int64_t x = 0; x < gap; ++x) to.insert(to.end(), {255, 255, 255, 255});
}

}  // namespace

bool ComparisonViews::convertToSRGB() {
  // Both or neither, or two that look alike would no more be of the same colours.
  Bitmap views[] = {original, result};
  for (Bitmap& view : views) {
    const bool converted =
        view.color.icc.empty() ? view.color.srgb : color::convertToSRGB(view.color.icc, view.pixels);
    if (!converted) return false;
    view.color = ColorTag();
    view.color.srgb = true;
  }
  original = std::move(views[0]);
  result = std::move(views[1]);
  return true;
}

std::optional<Comparison::Region> ComparisonViews::worstRegion(std::int64_t width,
                                                               std::int64_t height) const {
  constexpr std::int64_t cells = 16;
  const std::int64_t across = std::min(cells, original.width), down = std::min(cells, original.height);
  std::array<double, cells * cells> sums{};
  for (std::int64_t y = 0; y < original.height; ++y) {
    const Row one = original.row(y), other = result.row(y);
    const std::int64_t line = y * down / original.height * across;
    for (std::int64_t x = 0; x < original.width; ++x) {
      sums[static_cast<std::size_t>(line + x * across / original.width)] +=
          difference(one, other, static_cast<std::size_t>(x));
    }
  }
  // Cells differ in size by a pixel a side.
  const auto start = [](std::int64_t index, std::int64_t count, std::int64_t length) {
    return (index * length + count - 1) / count;
  };
  Comparison::Region worst;
  for (std::int64_t cell = 0; cell < across * down; ++cell) {
    const std::int64_t column = cell % across, row = cell / across;
    const std::int64_t pixels =
        (start(column + 1, across, original.width) - start(column, across, original.width)) *
        (start(row + 1, down, original.height) - start(row, down, original.height));
    const double mean = sums[static_cast<std::size_t>(cell)] / static_cast<double>(pixels);
    if (mean <= worst.difference) continue;
    worst = {.x = start(column, across, width), .y = start(row, down, height), .difference = mean};
    worst.width = std::max<std::int64_t>(start(column + 1, across, width) - worst.x, 1);
    worst.height = std::max<std::int64_t>(start(row + 1, down, height) - worst.y, 1);
  }
  return worst.difference > 0 ? std::optional(worst) : std::nullopt;
}

int ComparisonViews::amplification() const {
  constexpr int most = 16;
  int largest = 0;
  for (std::int64_t y = 0; y < original.height; ++y) {
    for (std::int64_t x = 0; x < original.width; ++x) {
      largest = std::max(largest, difference(original.row(y), result.row(y), static_cast<std::size_t>(x)));
    }
  }
  return std::clamp(255 / std::max(largest, 1), 1, most);
}

void ComparisonViews::write(const URL& file, int amplification) const {
  Descriptor descriptor(open(file.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!descriptor) throw FileError("创建", file.path(), errno);
  try {
    ColorTag color = original.color;
    if (!color.icc.empty() && !isAllowedInPNG(color.icc)) color.icc.clear();
    PNGWriter writer(std::move(descriptor), {.width = 3 * original.width + 2 * gap,
                                             .height = original.height,
                                             .hasAlpha = false,
                                             .bitsPerSample = 8,
                                             .color = color});
    std::vector<std::uint8_t> line;
    for (std::int64_t y = 0; y < original.height; ++y) {
      line.clear();
      const Row one = original.row(y), other = result.row(y);
      appendOpaque(line, one);
      appendGap(line);
      appendOpaque(line, other);
      appendGap(line);
      for (std::size_t i = 0; i < one.size(); i += channels) {
        for (std::size_t k = i; k < i + 3; ++k) {
          const int amplified = std::abs(int{one[k]} - int{other[k]}) * amplification;
          line.push_back(static_cast<std::uint8_t>(std::min(amplified, 255)));
        }
        line.push_back(255);
      }
      writer.writeRow(line);
    }
    writer.finish();
  } catch (...) {
    files::removeItemIfPossible(file);
    throw;
  }
}

}  // namespace tidewell
