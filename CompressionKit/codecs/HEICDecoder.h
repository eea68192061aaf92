// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <memory>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A HEIC or HEIF file, decoded by libheif. Its images are the top-level images of the file: thumbnails,
/// alpha and depth images, gain maps and the tiles of a grid do not count.
///
/// Width, height and rows are those of the stored image, cropped as its "clap" property asks; turning and
/// mirroring are told by the orientation only (an Exif block is not asked: viewers of HEIF ignore it). An
/// image of HDR transfer function is delivered in standard range, and its colour tag says what was delivered.
/// A decoded image stays in memory until the source goes or another image is decoded. An AVIF file is
/// recognised, to be refused by its type, but nothing in it is decoded.
///
/// In a library of its own, which the service is not linked with: what it does there runs in `heic-decoder`.
class HEICSource final : public ImageSource {
 public:
  /// Throws `FileError` when the file cannot be read, `ImageDecodeError` when its content is no HEIF file.
  explicit HEICSource(const URL& url, const StopToken& stop = {}) : HEICSource(ImageInput(url), stop) {}
  explicit HEICSource(const ImageInput& input, const StopToken& stop = {});
  HEICSource(const HEICSource&) = delete;
  HEICSource& operator=(const HEICSource&) = delete;
  ~HEICSource() override;

  Container container() const override;
  std::size_t count() override;
  std::size_t primaryIndex() override;
  ImageProperties properties(std::size_t index) override;
  std::unique_ptr<RowReader> rows(std::size_t index, std::int64_t minimumLongSide = 0) override;
  std::unique_ptr<DeepRowReader> deepRows(std::size_t index) override;
  void verify(std::size_t index) override;

  /// Writes the image, turned upright, into an empty file as a PNG of 8 bits per sample, or 16 for a source
  /// of more than 8, with its alpha and its colour tag. Throws `ImageDecodeError`, or `FileError` for the
  /// PNG.
  void writeUprightPNG(std::size_t index, Descriptor png);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tidewell
