// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "CompressionKit/codecs/ImageInput.h"
#include "CompressionKit/codecs/ImageProperties.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What a file is, by its content.
enum class Container { jpeg, png, gif, heic, heif, avif };

/// A part of an image in pixels, from its top left corner.
struct Rectangle {
  std::int64_t x = 0, y = 0, width = 0, height = 0;
};

/// The rows of one decoded image from top to bottom. Numbers are as stored: no conversion between colour
/// spaces.
class RowReader {
 public:
  virtual ~RowReader() = default;
  virtual std::int64_t width() const = 0;
  virtual std::int64_t height() const = 0;
  /// The next row into `row` (width × 4 bytes): R, G, B, A of 8 bits, colours premultiplied by alpha, 16-bit
  /// samples reduced to 8. Throws `ImageDecodeError` for damaged or missing data, `Interrupted`.
  virtual void read(std::span<std::uint8_t> row) = 0;
  /// Passes over `count` rows; cheaper than reading them where the format allows.
  virtual void skip(std::int64_t count);
  /// After the last row: the part that the reader was to keep, at full size and else as rows are, into
  /// `pixels` (its width × its height × 4 bytes). False where it was not kept. Throws as `read`.
  virtual bool readKept(std::span<std::uint8_t> pixels);
};

/// The same at the depth of the file.
class DeepRowReader {
 public:
  virtual ~DeepRowReader() = default;
  virtual std::int64_t width() const = 0;
  virtual std::int64_t height() const = 0;
  /// The next row into `row` (width × 4 samples): straight R, G, B, A of 16 bits, 8-bit values times 257.
  /// Throws as `RowReader::read`.
  virtual void read(std::span<std::uint16_t> row) = 0;
};

/// One opened image file. A source reads its file while it is used and belongs to one thread at a time. A
/// stop of the token that it was opened with ends every operation soon, with `Interrupted`.
class ImageSource {
 public:
  /// Detects the container from its content, not its name. A HEIF file (`heic`, `heif`, `avif`) is told by
  /// its first bytes, and nothing in it can be decoded here: that is the work of `HEICSource`. Throws
  /// `FileError` when the file cannot be opened or read, `ImageDecodeError` when it is no image that we know.
  static std::unique_ptr<ImageSource> open(const URL& url, const StopToken& stop = {});
  static std::unique_ptr<ImageSource> open(const ImageInput& input, const StopToken& stop = {});
  /// The container that `open` would detect, by the first bytes alone: nothing is known of the rest. Nothing
  /// for a file that is no image that we know. Throws `FileError`.
  static std::optional<Container> containerOf(const ImageInput& input);

  virtual ~ImageSource() = default;

  virtual Container container() const = 0;
  /// Number of images in the container.
  virtual std::size_t count() = 0;
  /// The image that a viewer shows first.
  virtual std::size_t primaryIndex() { return 0; }
  virtual ImageProperties properties(std::size_t index) = 0;

  /// Starts decoding one image. A format that decodes cheaply at a reduced size (JPEG) may deliver a smaller
  /// image, never one whose longer side is below `minimumLongSide`; 0 asks for full size. For GIF, an index
  /// is a frame and its image the composed canvas; reading frames in ascending order costs one pass over
  /// the file. The reader must not outlive the source, and a new reader ends the previous one.
  virtual std::unique_ptr<RowReader> rows(std::size_t index, std::int64_t minimumLongSide = 0) = 0;
  /// As `rows`, for whoever also wants `part`, which lies inside of the image at full size: where rows come
  /// at a reduced size, the reader may keep it.
  virtual std::unique_ptr<RowReader> rowsKeeping(std::size_t index, std::int64_t minimumLongSide,
                                                 const Rectangle& part);
  /// At full size and depth, else as `rows`. As it stands here for images whose pixels are 8 bits deep and
  /// opaque or nothing.
  virtual std::unique_ptr<DeepRowReader> deepRows(std::size_t index);

  /// Decodes the image completely and throws `ImageDecodeError` unless all of it is there and sound. Costs
  /// less than reading the rows where the format allows, and nothing where all rows have been read before.
  virtual void verify(std::size_t index);
};

}  // namespace tidewell
