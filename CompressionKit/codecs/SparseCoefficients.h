// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <cstdio>
// libjpeg's header wants <cstdio> first.
#include <jpeglib.h>

#include <memory>
#include <vector>

#include "CompressionKit/codecs/BlockArrays.h"

namespace tidewell {

/// The coefficients of one image of several scans, in a fraction of the memory that libjpeg's own arrays
/// take.
///
/// libjpeg holds every coefficient of such an image while it reads the scans: 3 bytes a pixel, nearly all of
/// them zero. Here only the block rows in use are plain; all others keep what is not zero: a bit for each
/// block that has anything, and for such a block 64 bits that tell its coefficients and their values.
class SparseCoefficients final : public BlockArrays {
 public:
  /// What is held is at most `ImageLimits::maximumResidentBytes`; more ends in libjpeg's error of memory that
  /// ran out.
  explicit SparseCoefficients(jpeg_decompress_struct& jpeg);
  ~SparseCoefficients() override;

  /// Blocks of 64 coefficients that the image has, with those that pad it.
  static std::int64_t blockCount(const jpeg_decompress_struct& jpeg);
  /// Whether libjpeg may smooth across blocks, which it does while scans are missing.
  static bool maySmooth(const jpeg_decompress_struct& jpeg);

 protected:
  void add(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess) override;
  JBLOCKARRAY access(std::size_t component, std::size_t first, std::size_t count, bool writable) override;

 private:
  class Array;

  std::vector<std::unique_ptr<Array>> arrays_;
  std::int64_t heldBytes_ = 0;
};

}  // namespace tidewell
