#pragma once

#include <cstdint>
#include <cstdio>
// libjpeg's header wants <cstdio> first.
#include <jpeglib.h>

#include <memory>
#include <vector>

namespace tidewell {

/// The coefficients of one image of several scans, in a fraction of the memory that libjpeg's own arrays
/// take.
///
/// libjpeg holds every coefficient of such an image while it reads the scans: 3 bytes a pixel, nearly all of
/// them zero. Here only the block rows in use are plain; all others keep what is not zero: a bit for each
/// block that has anything, and for such a block 64 bits that tell its coefficients and their values.
class SparseCoefficients {
 public:
  /// Takes over the block arrays of `jpeg`, whose header has been read and whose decompression has not
  /// started. Uses its `client_data`. Must outlive it. What is held is at most
  /// `ImageLimits::maximumResidentBytes`; more ends in libjpeg's error of memory that ran out.
  explicit SparseCoefficients(jpeg_decompress_struct& jpeg);
  ~SparseCoefficients();

  SparseCoefficients(const SparseCoefficients&) = delete;
  SparseCoefficients& operator=(const SparseCoefficients&) = delete;

  /// Blocks of 64 coefficients that the image has, with those that pad it.
  static std::int64_t blockCount(const jpeg_decompress_struct& jpeg);

 private:
  class Array;

  static jvirt_barray_ptr request(j_common_ptr jpeg, int pool, boolean preZero, JDIMENSION blocksPerRow,
                                  JDIMENSION rows, JDIMENSION maximumAccess);
  static JBLOCKARRAY access(j_common_ptr jpeg, jvirt_barray_ptr array, JDIMENSION first, JDIMENSION count,
                            boolean writable);

  std::vector<std::unique_ptr<Array>> arrays_;
  std::int64_t heldBytes_ = 0;
};

}  // namespace tidewell
