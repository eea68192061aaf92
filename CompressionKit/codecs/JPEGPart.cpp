// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/JPEGPart.h"

#include <algorithm>
#include <cstring>

#include "CompressionKit/codecs/SparseCoefficients.h"

namespace tidewell {
namespace {

/// libjpeg makes pixels by groups of blocks that hold a block of each component at least. Where chroma is
/// enlarged smoothly, a pixel depends on a sample of the next group.
std::int64_t groupSide(int maximumFactor) {
  return std::int64_t{maximumFactor} * DCTSIZE;
}

struct Extent {
  std::int64_t start, length;
};

/// Whole groups, and one more on either side, as far as the image goes.
Extent widened(std::int64_t start, std::int64_t length, std::int64_t group, std::int64_t imageLength) {
  const std::int64_t first = std::max<std::int64_t>(start / group - 1, 0) * group;
  const std::int64_t end = ((start + length + group - 1) / group + 1) * group;
  return {.start = first, .length = std::min(end, imageLength) - first};
}

std::string bigEndian(std::int64_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

/// One code, "0", for the symbol 0: no difference, or the end of the block.
void giveZeroTable(jpeg_decompress_struct& jpeg, JHUFF_TBL*& table) {
  table = jpeg_alloc_huff_table(reinterpret_cast<j_common_ptr>(&jpeg));
  std::memset(table->bits, 0, sizeof table->bits);
  std::memset(table->huffval, 0, sizeof table->huffval);
  table->bits[1] = 1;
}

}  // namespace

class JPEGPart::Arrays final : public PassingBlocks {
 public:
  Arrays(jpeg_decompress_struct& jpeg, JPEGPart& part) : PassingBlocks(jpeg), part_(part) {}

 protected:
  void add(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess) override {
    PassingBlocks::add(blocksPerRow, rows, maximumAccess);
    windows_.emplace_back(maximumAccess);
  }
  JBLOCKARRAY access(std::size_t component, std::size_t first, std::size_t count, bool writable) override {
    const JBLOCKARRAY ignored = PassingBlocks::access(component, first, count, writable);
    if (writable || ignored == nullptr) return ignored;
    std::vector<JBLOCKROW>& window = windows_[component];
    for (std::size_t i = 0; i < count; ++i) window[i] = part_.components_[component].row(first + i);
    return window.data();
  }

 private:
  JPEGPart& part_;
  std::vector<std::vector<JBLOCKROW>> windows_;
};

JPEGPart::JPEGPart(const jpeg_decompress_struct& jpeg, const Rectangle& part) {
  const std::int64_t across = groupSide(jpeg.max_h_samp_factor), down = groupSide(jpeg.max_v_samp_factor);
  const Extent x = widened(part.x, part.width, across, jpeg.image_width);
  const Extent y = widened(part.y, part.height, down, jpeg.image_height);
  area_ = {.x = x.start, .y = y.start, .width = x.length, .height = y.length};
  const auto groups = [](std::int64_t length, std::int64_t side) { return (length + side - 1) / side; };
  for (int c = 0; c < jpeg.num_components; ++c) {
    const jpeg_component_info& info = jpeg.comp_info[c];
    const auto blocks = [](std::int64_t count, int factor) {
      return static_cast<std::size_t>(count * factor);
    };
    Component component{.across = info.h_samp_factor,
                        .down = info.v_samp_factor,
                        .left = blocks(x.start / across, info.h_samp_factor),
                        .top = blocks(y.start / down, info.v_samp_factor),
                        .columns = blocks(groups(x.length, across), info.h_samp_factor),
                        .rows = blocks(groups(y.length, down), info.v_samp_factor)};
    component.coefficients.resize(component.columns * component.rows * DCTSIZE2);
    components_.push_back(std::move(component));
  }
}

bool JPEGPart::isPossible(const jpeg_decompress_struct& jpeg) {
  if (jpeg.num_components > MAX_COMPS_IN_SCAN) return false;
  int blocks = 0;
  for (int c = 0; c < jpeg.num_components; ++c) {
    blocks += jpeg.comp_info[c].h_samp_factor * jpeg.comp_info[c].v_samp_factor;
  }
  return blocks <= D_MAX_BLOCKS_IN_MCU || jpeg.num_components == 1;
}

void JPEGPart::copy(std::size_t component, std::size_t first, std::size_t count, JBLOCKARRAY rows) {
  Component& to = components_[component];
  for (std::size_t i = 0; i < count && to.copied < to.rows; ++i) {
    if (first + i != to.top + to.copied) continue;
    std::memcpy(to.row(to.copied++), rows[i] + to.left, to.columns * sizeof(JBLOCK));
  }
}

bool JPEGPart::isComplete(const jpeg_decompress_struct& jpeg) const {
  if (SparseCoefficients::maySmooth(jpeg)) return false;
  const jpeg_component_info* info = jpeg.comp_info;
  return std::ranges::all_of(components_, [&](const Component& component) {
    return component.copied == component.rows && (info++)->quant_table != nullptr;
  });
}

std::string JPEGPart::header() const {
  const auto count = static_cast<std::int64_t>(components_.size());
  std::string frame = bigEndian(8 + 3 * count) + '\x08' + bigEndian(area_.height) + bigEndian(area_.width);
  std::string scan = bigEndian(6 + 2 * count);
  frame += static_cast<char>(count);
  scan += static_cast<char>(count);
  for (std::size_t c = 0; c < components_.size(); ++c) {
    const auto number = static_cast<char>(c);
    frame += {number, static_cast<char>(components_[c].across * 16 + components_[c].down), number};
    scan += {number, '\0'};
  }
  return "\xFF\xD8\xFF\xC1" + frame + "\xFF\xDA" + scan + std::string("\0\x3F\0", 3);
}

void JPEGPart::describe(jpeg_decompress_struct& jpeg, const jpeg_decompress_struct& original) {
  giveZeroTable(jpeg, jpeg.dc_huff_tbl_ptrs[0]);
  giveZeroTable(jpeg, jpeg.ac_huff_tbl_ptrs[0]);
  for (int c = 0; c < jpeg.num_components; ++c) {
    jpeg.quant_tbl_ptrs[c] = jpeg_alloc_quant_table(reinterpret_cast<j_common_ptr>(&jpeg));
    std::memcpy(jpeg.quant_tbl_ptrs[c]->quantval, original.comp_info[c].quant_table->quantval,
                sizeof jpeg.quant_tbl_ptrs[c]->quantval);
  }
  jpeg.jpeg_color_space = original.jpeg_color_space;
  jpeg.out_color_space = original.out_color_space;
  jpeg.buffered_image = TRUE;
}

std::unique_ptr<BlockArrays> JPEGPart::arrays(jpeg_decompress_struct& jpeg) {
  return std::make_unique<Arrays>(jpeg, *this);
}

}  // namespace tidewell
