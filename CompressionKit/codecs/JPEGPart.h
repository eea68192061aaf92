// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
// libjpeg's header wants <cstdio> first.
#include <jpeglib.h>

#include <memory>
#include <string>
#include <vector>

#include "CompressionKit/codecs/BlockArrays.h"
#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell {

/// A part of a JPEG image as coefficients, copied while the image is decoded at whatever size. The pixels at
/// full size come from them as from the whole image: around the part stands as much as they may depend on.
///
/// libjpeg makes the pixels: it is shown an image of the part's size whose scan says nothing (zeros without
/// end, of which each block takes two bits), and finds the coefficients in its arrays all the same.
class JPEGPart {
 public:
  /// Of the image that `jpeg` has read the header of. `part` lies inside of it.
  JPEGPart(const jpeg_decompress_struct& jpeg, const Rectangle& part);

  /// Whether libjpeg can be shown a part of such an image.
  static bool isPossible(const jpeg_decompress_struct& jpeg);

  /// The part with what stands around it, as a place in the image.
  const Rectangle& area() const { return area_; }

  /// Takes what belongs to the part from `count` rows of blocks of a component. They come in order.
  void copy(std::size_t component, std::size_t first, std::size_t count, JBLOCKARRAY rows);
  /// Whether the pixels of `jpeg`, of which all rows have been read, depend on nothing else.
  bool isComplete(const jpeg_decompress_struct& jpeg) const;

  /// The image that libjpeg is shown, as far as its scan. It has its colours and tables from `describe`.
  std::string header() const;
  /// Calls libjpeg: `jpeg` has read `header`, and has all else as `original`.
  static void describe(jpeg_decompress_struct& jpeg, const jpeg_decompress_struct& original);
  /// The arrays in which libjpeg finds the coefficients; what it writes is lost.
  std::unique_ptr<BlockArrays> arrays(jpeg_decompress_struct& jpeg);

 private:
  class Arrays;

  struct Component {
    int across, down;
    std::size_t left, top, columns, rows;  ///< in blocks
    std::size_t copied = 0;                ///< rows
    std::vector<JCOEF> coefficients = {};

    JBLOCKROW row(std::size_t index) {
      return reinterpret_cast<JBLOCKROW>(coefficients.data() + index * columns * DCTSIZE2);
    }
  };

  Rectangle area_;
  std::vector<Component> components_;
};

}  // namespace tidewell
