// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
// libjpeg's header wants <cstdio> first.
#include <jpeglib.h>

#include <vector>

namespace tidewell {

class JPEGPart;

/// Arrays of coefficients in the place of libjpeg's own, one for each component of the image.
class BlockArrays {
 public:
  /// Takes over the block arrays of `jpeg`, whose header has been read and whose decompression has not
  /// started. Uses its `client_data`. Must outlive it.
  explicit BlockArrays(jpeg_decompress_struct& jpeg);
  virtual ~BlockArrays() = default;

  BlockArrays(const BlockArrays&) = delete;
  BlockArrays& operator=(const BlockArrays&) = delete;

  /// The rows that libjpeg makes pixels of are copied to `part` from now on.
  void copyTo(JPEGPart& part) { part_ = &part; }

 protected:
  const jpeg_decompress_struct& jpeg() const { return jpeg_; }

  /// Makes the array of the next component, with all coefficients zero. May throw `std::bad_alloc`.
  virtual void add(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess) = 0;
  /// The rows from `first` on, until the next access to that component; null where there is no such row or
  /// too much memory is held. May throw `std::bad_alloc`.
  virtual JBLOCKARRAY access(std::size_t component, std::size_t first, std::size_t count, bool writable) = 0;

 private:
  static jvirt_barray_ptr request(j_common_ptr jpeg, int pool, boolean preZero, JDIMENSION blocksPerRow,
                                  JDIMENSION rows, JDIMENSION maximumAccess);
  static JBLOCKARRAY accessRows(j_common_ptr jpeg, jvirt_barray_ptr array, JDIMENSION first, JDIMENSION count,
                                boolean writable);

  const jpeg_decompress_struct& jpeg_;
  JPEGPart* part_ = nullptr;
  std::array<std::size_t, MAX_COMPONENTS> numbers_{};
  std::size_t count_ = 0;
};

/// For an image of one scan, whose rows become pixels one after the other: they pass through the same blocks.
class PassingBlocks : public BlockArrays {
 public:
  using BlockArrays::BlockArrays;

 protected:
  void add(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess) override;
  JBLOCKARRAY access(std::size_t component, std::size_t first, std::size_t count, bool writable) override;

 private:
  struct Window {
    std::size_t blocksPerRow, rows;
    std::vector<JCOEF> coefficients = {};
    std::vector<JBLOCKROW> starts = {};
    std::size_t first = 0;
  };
  std::vector<Window> windows_;
};

}  // namespace tidewell
