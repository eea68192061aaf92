// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ScreenPicture.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/HEICDecoding.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/image/ImageRendering.h"
#include "CompressionKit/image/RowFile.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Locations.h"

namespace tidewell {
namespace {

ImageInput localInput(const URL& url) {
  if (!url.isFileURL()) throw CompressionError::fileOperation("请选择本地图片文件");
  return ImageInput(url);
}

/// False where the rows have no room, or no files can be there: the reduced view is better than nothing. What
/// goes wrong with the picture is not meant.
template <typename Work>
bool isRoomFor(Work work) {
  try {
    work();
  } catch (const FileError&) {
    return false;
  }
  return true;
}

/// Averages squares of `factor`, cut off at the right and at the bottom.
Bitmap reducedBy(const Bitmap& from, std::int64_t factor) {
  Bitmap result{.width = (from.width + factor - 1) / factor,
                .height = (from.height + factor - 1) / factor,
                .pixels = {},
                .hasAlpha = from.hasAlpha,
                .color = from.color};
  result.pixels.resize(static_cast<std::size_t>(result.width * result.height) * 4);
  std::vector<std::uint32_t> sums(static_cast<std::size_t>(result.width) * 4);
  for (std::int64_t y = 0; y < result.height; ++y) {
    std::ranges::fill(sums, 0);
    const std::int64_t rows = std::min(factor, from.height - y * factor);
    for (std::int64_t i = 0; i < rows; ++i) {
      const std::uint8_t* pixel = from.row(y * factor + i).data();
      for (std::int64_t x = 0; x < from.width; ++x, pixel += 4) {
        std::uint32_t* sum = sums.data() + x / factor * 4;
        for (int c = 0; c < 4; ++c) sum[c] += pixel[c];
      }
    }
    std::uint8_t* to = result.row(y).data();
    for (std::int64_t x = 0; x < result.width; ++x) {
      const std::int64_t columns = std::min(factor, from.width - x * factor);
      const auto count = std::max(1U, static_cast<std::uint32_t>(rows * columns));
      for (int c = 0; c < 4; ++c, ++to)
        *to = static_cast<std::uint8_t>((sums[static_cast<std::size_t>(x * 4 + c)] + count / 2) / count);
    }
  }
  return result;
}

}  // namespace

ScreenPicture::ScreenPicture(const URL& url, std::int64_t maximumSide, const StopToken& stop) : stop_(stop) {
  decoding([&] {
    input_ = localInput(url);
    auto source = open();
    if (ImageKind(ImageKind::heic).accepts(source->container())) {
      // The PNG has no name and lives as long as it is open here.
      input_ = HEICDecoding(url, HEICDecoding::Purpose::show, stop).png();
      source = open();
    }
    frameCount_ = source->count();
    if (frameCount_ < 1) throw CompressionError::invalidImage();
    index_ = source->primaryIndex();
    properties_ = source->properties(index_);
    reduced_ = views::thumbnail(*source, index_, maximumSide, true);
  });
  width_ = properties_.width;
  height_ = properties_.height;
  if (properties_.orientation.value_or(1) >= 5 && properties_.orientation.value_or(1) <= 8)
    std::swap(width_, height_);
  color_.emplace(properties_.color);
  color_->convert(reduced_);
}

ScreenPicture::~ScreenPicture() = default;

std::unique_ptr<ImageSource> ScreenPicture::open() const {
  return ImageSource::open(*input_, stop_);
}

bool ScreenPicture::prepareParts() {
  if (rows_) return true;
  if (4.0 * static_cast<double>(width_) * static_cast<double>(height_) >
      static_cast<double>(maximumFileBytes))
    return false;
  return decoding([this] {
    const auto source = open();
    const auto rows = source->rows(index_);
    if (rows->width() != properties_.width || rows->height() != properties_.height)
      throw CompressionError::invalidImage();
    std::unique_ptr<RowFile> file;
    const bool isBegun = isRoomFor([&] {
      file = std::make_unique<RowFile>(locations::largeTemporaryDirectory(), rows->width(), rows->height());
    });
    if (!isBegun) return false;
    const auto rowBytes = static_cast<std::size_t>(rows->width()) * 4;
    const std::size_t perWrite = std::max<std::size_t>(1, (std::size_t{1} << 20) / rowBytes);
    std::vector<std::uint8_t> band(rowBytes * perWrite);
    for (std::int64_t y = 0; y < rows->height();) {
      const auto count = std::min(static_cast<std::int64_t>(perWrite), rows->height() - y);
      const auto part = std::span(band).first(rowBytes * static_cast<std::size_t>(count));
      for (std::int64_t i = 0; i < count; ++i, ++y)
        rows->read(part.subspan(rowBytes * static_cast<std::size_t>(i), rowBytes));
      if (!isRoomFor([&] { file->append(part); })) return false;
    }
    rows_ = std::move(file);
    return true;
  });
}

void ScreenPicture::dropParts() {
  rows_.reset();
}

/// Where a part of the upright picture lies in the stored one.
Rectangle ScreenPicture::stored(const Rectangle& upright) const {
  // Exif 2.32, tag 0x0112, as `views::upright` turns it.
  const int orientation = properties_.orientation.value_or(1);
  Rectangle part = upright;
  if (orientation < 2 || orientation > 8) return part;
  if (orientation >= 5)
    part = {.x = upright.y, .y = upright.x, .width = upright.height, .height = upright.width};
  const bool flipX = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
  const bool flipY = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
  if (flipX) part.x = properties_.width - part.x - part.width;
  if (flipY) part.y = properties_.height - part.y - part.height;
  return part;
}

Bitmap ScreenPicture::part(const Rectangle& part, std::int64_t reduction) const {
  Bitmap result = rows_->part(stored(part));
  result.hasAlpha = hasAlpha();
  result = views::upright(std::move(result), properties_.orientation.value_or(1));
  if (reduction > 1) result = reducedBy(result, reduction);
  color_->convert(result);
  return result;
}

ScreenAnimation::ScreenAnimation(const URL& gif, std::int64_t maximumSide, const StopToken& stop)
    : url_(gif), state_(files::resourceValues(gif)), maximumSide_(maximumSide) {
  decoding([&] {
    source_ = ImageSource::open(localInput(gif), stop);
    if (source_->count() < 1) throw CompressionError::invalidImage();
    for (std::size_t i = 0; i < source_->count(); ++i) {
      constexpr double shortest = 0.015, usual = 0.1;
      const double delay = source_->properties(i).delay.value_or(0);
      delays_.push_back(delay < shortest ? usual : delay);
    }
    color_.emplace(source_->properties(0).color);
  });
}

Bitmap ScreenAnimation::frame(std::size_t index) {
  // Its rows are read while it plays, long after its hash was taken.
  if (files::resourceValues(url_) != state_)
    throw CompressionError::fileOperation("图片文件在载入过程中被修改，请重新打开对比");
  Bitmap frame = decoding([&] { return views::thumbnail(*source_, index, maximumSide_, false); });
  color_->convert(frame);
  return frame;
}

namespace ImageRendering {

std::shared_ptr<const ScreenPictures> screenPictures(const URL& original, const URL& compressed,
                                                     const std::optional<std::string>& originalHash,
                                                     const std::optional<std::string>& replacementHash,
                                                     std::int64_t maximumSide, const StopToken& stop) {
  const UnchangedFiles files(original, compressed, originalHash, replacementHash);
  const auto begin = [&](const URL& url) {
    return read(OperationQueue::Priority::high,
                [=] { return std::make_unique<ScreenPicture>(url, maximumSide, stop); });
  };
  auto first = begin(original), second = begin(compressed);
  auto pictures = std::make_shared<const ScreenPictures>(
      ScreenPictures{.files = files, .original = first.get(), .compressed = second.get()});
  files.check();
  return pictures;
}

bool prepareParts(const std::shared_ptr<const ScreenPictures>& pictures) {
  const auto begin = [&](ScreenPicture& picture) {
    return read(OperationQueue::Priority::high, [pictures, &picture] { return picture.prepareParts(); });
  };
  auto first = begin(*pictures->original), second = begin(*pictures->compressed);
  first.wait();
  second.wait();
  const auto drop = [&] {
    pictures->original->dropParts();
    pictures->compressed->dropParts();
  };
  try {
    const bool original = first.get(), compressed = second.get();
    pictures->files.check();
    if (original && compressed) return true;
  } catch (...) {
    drop();
    throw;
  }
  drop();
  return false;
}

}  // namespace ImageRendering
}  // namespace tidewell
