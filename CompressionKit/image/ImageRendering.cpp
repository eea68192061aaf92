// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ImageRendering.h"

#include <algorithm>
#include <memory>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/image/UnchangedFiles.h"

namespace tidewell::ImageRendering {
namespace {

std::unique_ptr<ImageSource> open(const URL& url) {
  auto source = ImageSource::open(url);
  if (!ImageKind(ImageKind::heic).accepts(source->container())) return source;
  return ImageSource::open(HEICDecoding(url, HEICDecoding::Purpose::show).png());
}

/// Without a maximum at full size.
Bitmap decode(const URL& url, std::optional<std::int64_t> maximumPixelSize) {
  return decoding([&] {
    const auto source = open(url);
    if (source->count() < 1) throw CompressionError::invalidImage();
    const std::size_t index = source->primaryIndex();
    const ImageProperties properties = source->properties(index);
    if (properties.width < 1 || properties.height < 1) throw CompressionError::invalidImage();
    const std::int64_t longSide = std::max(properties.width, properties.height);
    const std::int64_t size = std::min(maximumPixelSize.value_or(longSide), longSide);
    // The bitmap's bytes, in doubles because hostile sizes overflow integers.
    const double scale = static_cast<double>(size) / static_cast<double>(longSide);
    const double bytes =
        4.0 * scale * scale * static_cast<double>(properties.width) * static_cast<double>(properties.height);
    if (bytes > static_cast<double>(ImageLimits::maximumResidentBytes))
      throw CompressionError::invalidImage();
    return views::thumbnail(*source, index, size, true);
  });
}

}  // namespace

OperationQueue& workers() {
  static OperationQueue queue("com.vantor.tidewell.image-reading", 2);
  return queue;
}

Bitmap comparisonImage(const URL& url) {
  if (!url.isFileURL()) throw CompressionError::fileOperation("请选择本地图片文件");
  return decode(url, std::nullopt);
}

Bitmap thumbnail(const URL& url, std::int64_t maximumPixelSize) {
  if (!url.isFileURL() || maximumPixelSize < 1) throw CompressionError::invalidImage();
  return decode(url, maximumPixelSize);
}

std::future<ComparisonImages> comparisonImages(const URL& original, const URL& compressed,
                                               const std::optional<std::string>& originalHash,
                                               const std::optional<std::string>& replacementHash) {
  return read(OperationQueue::Priority::high, [=] {
    const UnchangedFiles files(original, compressed, originalHash, replacementHash);
    ComparisonImages images{comparisonImage(original), comparisonImage(compressed)};
    files.check();
    return images;
  });
}

}  // namespace tidewell::ImageRendering
