// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// The comparisons of `ImageFacts` that look at decoded pixels: both images are decoded in step, a band of
// rows at a time, so that memory stays bounded whatever their size.

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/GIFFrames.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

constexpr std::int64_t bandPixels = 1'048'576;
constexpr std::int64_t maximumBandPixels = 25'000'000;  // a single row can be that long

using Band = std::span<const std::uint8_t>;
using DeepBand = std::span<const std::uint16_t>;
using Check = std::function<bool(Band original, Band candidate)>;

/// Calls `check` with each band of both images from top to bottom; stops at the first false.
template <typename Sample, typename Reader, typename Check>
bool walkBands(Reader& original, Reader& candidate, const Check& check) {
  const std::int64_t width = original.width(), height = original.height();
  if (width != candidate.width() || height != candidate.height() || width < 1 || height < 1) return false;
  const std::int64_t rowsPerBand = std::max<std::int64_t>(1, std::min(bandPixels / width, height));
  if (width > maximumBandPixels / rowsPerBand) return false;
  const auto rowSize = static_cast<std::size_t>(width) * 4;
  std::vector<Sample> first(rowSize * static_cast<std::size_t>(rowsPerBand)), second(first.size());
  for (std::int64_t y = 0; y < height; y += rowsPerBand) {
    const auto rows = static_cast<std::size_t>(std::min(rowsPerBand, height - y));
    for (std::size_t row = 0; row < rows; ++row) {
      original.read(std::span(first).subspan(row * rowSize, rowSize));
      candidate.read(std::span(second).subspan(row * rowSize, rowSize));
    }
    const std::span<const Sample> a(first), b(second);
    if (!check(a.first(rows * rowSize), b.first(rows * rowSize))) return false;
  }
  return true;
}

/// The answer of a comparison; false when it fails.
template <typename Comparison>
bool holds(const Comparison& comparison) {
  try {
    return comparison();
  } catch (const Interrupted&) {
    throw;
  } catch (const std::exception&) {
    return false;
  }
}

/// The answer of a comparison with a file that is yet to be opened.
template <typename Comparison>
bool holdsWith(const URL& candidate, const StopToken& stop, const Comparison& comparison) {
  return holds([&] { return comparison(*ImageSource::open(candidate, stop)); });
}

bool compareFirstImages(const URL& original, ImageSource& candidate, const StopToken& stop,
                        const Check& check) {
  return holds([&] {
    const auto first = ImageSource::open(original, stop);
    const auto firstRows = first->rows(0);
    const auto secondRows = candidate.rows(0);
    return walkBands<std::uint8_t>(*firstRows, *secondRows, check);
  });
}

bool bytesEqual(Band original, Band candidate) {
  return std::ranges::equal(original, candidate);
}

/// How far an alpha channel moved, over all pixels that are visible in either image.
class AlphaStatistics {
 public:
  /// False when a single pixel alone rules the candidate out.
  bool add(Band original, Band candidate) {
    for (std::size_t i = 3; i < original.size(); i += 4) {
      const int a = original[i], b = candidate[i];
      if (a == 255 && b < 192) return false;  // a hole in what was opaque
      if (a == 0 && b > 2) return false;      // a stain on what was clear
      if (a == 0 && b == 0) continue;
      const int difference = std::abs(a - b);
      ++counted_;
      if (difference >= 33) ++large_;
      sum_ += difference;
      squares_ += difference * difference;
      originalCoverage_ += a;
      candidateCoverage_ += b;
    }
    return true;
  }

  bool withinLimits() const {
    if (counted_ == 0) return true;
    if (originalCoverage_ <= 0) return candidateCoverage_ == 0;
    const auto counted = static_cast<double>(counted_);
    return sum_ / counted <= 2.0 && squares_ / counted <= 36.0 &&
           static_cast<double>(large_) / counted <= 0.005 &&
           std::abs(candidateCoverage_ - originalCoverage_) / originalCoverage_ <= 0.01;
  }

 private:
  std::int64_t counted_ = 0, large_ = 0;
  double sum_ = 0, squares_ = 0, originalCoverage_ = 0, candidateCoverage_ = 0;
};

}  // namespace

bool ImageFacts::pixelsEqual(const URL& original, const URL& candidate, const StopToken& stop) {
  return holdsWith(candidate, stop, [&](ImageSource& source) {
    return compareFirstImages(original, source, stop, bytesEqual);
  });
}

bool ImageFacts::samplesEqual(const URL& original, const URL& candidate, const StopToken& stop) {
  return holdsWith(candidate, stop,
                   [&](ImageSource& source) { return samplesEqual(original, source, stop); });
}

bool ImageFacts::samplesEqual(const URL& original, ImageSource& candidate, const StopToken& stop) {
  return holds([&] {
    const auto first = ImageSource::open(original, stop);
    const auto isPlain = [](const ImageProperties& image) {
      return image.bitsPerSample <= 8 && !image.hasAlpha;
    };
    if (isPlain(first->properties(0)) && isPlain(candidate.properties(0))) {
      const auto firstRows = first->rows(0), secondRows = candidate.rows(0);  // all that a file holds
      return walkBands<std::uint8_t>(*firstRows, *secondRows, bytesEqual);
    }
    const auto firstRows = first->deepRows(0), secondRows = candidate.deepRows(0);
    return walkBands<std::uint16_t>(*firstRows, *secondRows, [](DeepBand a, DeepBand b) {
      for (std::size_t i = 0; i < a.size(); i += 4) {
        const bool unseen = a[i + 3] == 0 && b[i + 3] == 0;
        if (!unseen && !std::equal(&a[i], &a[i] + 4, &b[i])) return false;
      }
      return true;
    });
  });
}

bool ImageFacts::alphaDeviationWithin(const URL& original, const URL& candidate, std::uint8_t tolerance,
                                      const StopToken& stop) {
  return holdsWith(candidate, stop, [&](ImageSource& source) {
    return compareFirstImages(original, source, stop, [tolerance](Band a, Band b) {
      for (std::size_t i = 3; i < a.size(); i += 4) {
        if (std::abs(a[i] - b[i]) > tolerance) return false;
      }
      return true;
    });
  });
}

bool ImageFacts::quantizedAlphaWithin(const URL& original, const URL& candidate, const StopToken& stop) {
  return holdsWith(candidate, stop,
                   [&](ImageSource& source) { return quantizedAlphaWithin(original, source, stop); });
}

bool ImageFacts::quantizedAlphaWithin(const URL& original, ImageSource& candidate, const StopToken& stop) {
  AlphaStatistics statistics;
  return compareFirstImages(original, candidate, stop,
                            [&](Band a, Band b) { return statistics.add(a, b); }) &&
         statistics.withinLimits();
}

bool ImageFacts::gifFramesEqual(const AnimationFile& original, const AnimationFile& candidate,
                                const StopToken& stop) {
  return holds([&] {
    const auto first = original.open(stop);
    const auto second = candidate.open(stop);
    if (first->count() != second->count()) return false;
    for (std::size_t i = 0; i < first->count(); ++i) {
      const auto one = first->canvas(i);
      if (!canvases::agreeInChanges(one, second->canvas(i), canvases::Compared::pixels)) return false;
    }
    return true;
  });
}

}  // namespace tidewell
