// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/BlockArrays.h"

#include <jerror.h>

#include <algorithm>
#include <new>

#include "CompressionKit/codecs/JPEGPart.h"

namespace tidewell {

BlockArrays::BlockArrays(jpeg_decompress_struct& jpeg) : jpeg_(jpeg) {
  jpeg.client_data = this;
  jpeg.mem->request_virt_barray = request;
  jpeg.mem->access_virt_barray = accessRows;
}

// The two methods leave by longjmp where they fail, and no exception may pass through libjpeg: so what throws
// is over before libjpeg's error is raised. What libjpeg takes for an array is where the component's number
// stands.

jvirt_barray_ptr BlockArrays::request(j_common_ptr jpeg, int, boolean, JDIMENSION blocksPerRow,
                                      JDIMENSION rows, JDIMENSION maximumAccess) {
  auto& self = *static_cast<BlockArrays*>(jpeg->client_data);
  bool isMade = false;
  try {
    self.add(blocksPerRow, rows, maximumAccess);
    isMade = true;
  } catch (const std::bad_alloc&) {
  }
  if (!isMade || self.count_ == self.numbers_.size()) ERREXIT1(jpeg, JERR_OUT_OF_MEMORY, 0);
  std::size_t& number = self.numbers_[self.count_];
  number = self.count_++;
  return reinterpret_cast<jvirt_barray_ptr>(&number);
}

JBLOCKARRAY BlockArrays::accessRows(j_common_ptr jpeg, jvirt_barray_ptr array, JDIMENSION first,
                                    JDIMENSION count, boolean writable) {
  auto& self = *static_cast<BlockArrays*>(jpeg->client_data);
  const std::size_t component = *reinterpret_cast<const std::size_t*>(array);
  JBLOCKARRAY rows = nullptr;
  try {
    rows = self.access(component, first, count, writable != FALSE);
  } catch (const std::bad_alloc&) {
  }
  if (rows == nullptr) ERREXIT1(jpeg, JERR_OUT_OF_MEMORY, 0);
  if (self.part_ != nullptr && writable == FALSE) self.part_->copy(component, first, count, rows);
  return rows;
}

void PassingBlocks::add(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess) {
  Window& window = windows_.emplace_back(Window{.blocksPerRow = blocksPerRow, .rows = rows});
  const std::size_t length = blocksPerRow * DCTSIZE2;
  window.coefficients.resize(length * maximumAccess);
  for (std::size_t i = 0; i < maximumAccess; ++i) {
    window.starts.push_back(reinterpret_cast<JBLOCKROW>(window.coefficients.data() + i * length));
  }
}

JBLOCKARRAY PassingBlocks::access(std::size_t component, std::size_t first, std::size_t count,
                                  bool writable) {
  Window& window = windows_[component];
  if (count > window.starts.size() || first > window.rows || count > window.rows - first) return nullptr;
  if (writable) {
    std::ranges::fill(window.coefficients, JCOEF{0});
    window.first = first;
  }
  return first == window.first ? window.starts.data() : nullptr;
}

}  // namespace tidewell
