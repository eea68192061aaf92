// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/SparseCoefficients.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell {
namespace {

static_assert(sizeof(JCOEF) == 2 && sizeof(JBLOCK) == 128);
static_assert(std::endian::native == std::endian::little);

constexpr std::size_t blocksPerGroup = 64;
/// The coefficients of a block but the first.
constexpr std::size_t othersBytes = sizeof(JBLOCK) - sizeof(JCOEF);

template <typename Value>
std::uint8_t* put(std::uint8_t* to, Value value) {
  std::memcpy(to, &value, sizeof value);
  return to + sizeof value;
}

template <typename Value>
Value take(const std::uint8_t*& from) {
  Value value;
  std::memcpy(&value, from, sizeof value);
  from += sizeof value;
  return value;
}

template <typename Visit>
void forEachBit(std::uint64_t bits, Visit visit) {
  for (; bits != 0; bits &= bits - 1) visit(static_cast<std::size_t>(std::countr_zero(bits)));
}

// GCC's and Clang's vectors: the loop below is half of the work.
using Lanes [[gnu::vector_size(16)]] = std::int16_t;
using Bytes [[gnu::vector_size(8)]] = std::int8_t;

/// A bit for each coefficient but the first that is not zero, in the order of `placeOf`.
std::uint64_t usedCoefficients(const JCOEF* block) {
  Lanes columns{};
  Lanes bit{1, 1, 1, 1, 1, 1, 1, 1};
  for (std::size_t y = 0; y < 8; ++y) {
    Lanes row;
    std::memcpy(&row, block + y * 8, sizeof row);
    columns |= (row != 0) & bit;
    bit += bit;
  }
  return std::bit_cast<std::uint64_t>(__builtin_convertvector(columns, Bytes)) & ~std::uint64_t{1};
}

/// Stands for a block that is kept as it is.
constexpr auto allUsed = ~std::uint64_t{0};

/// About 32 of 64.
bool isDense(std::uint64_t used) {
  used -= used >> 1 & 0x5555555555555555;
  used = (used & 0x3333333333333333) + (used >> 2 & 0x3333333333333333);
  used = (used + (used >> 4)) & 0x0F0F0F0F0F0F0F0F;
  return used * 0x0101010101010101 >> 56 > 32;
}

/// Which coefficient a bit of `usedCoefficients` stands for.
std::size_t placeOf(std::size_t bit) {
  return (bit & 7) * 8 + (bit >> 3);
}

}  // namespace

class SparseCoefficients::Array {
 public:
  Array(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess)
      : blocksPerRow_(blocksPerRow),
        groups_((blocksPerRow + blocksPerGroup - 1) / blocksPerGroup),
        maximumAccess_(maximumAccess),
        rows_(rows),
        scratch_(std::make_unique_for_overwrite<std::uint8_t[]>(
            groups_ * sizeof(std::uint64_t) + blocksPerRow * (sizeof(std::uint64_t) + sizeof(JBLOCK)))) {}

  bool mayAccess(std::size_t first, std::size_t count) const {
    return count <= maximumAccess_ && first <= rows_.size() && count <= rows_.size() - first;
  }

  /// As many rows from `first` on as may be accessed at once.
  std::size_t widened(std::size_t first) const { return std::min(maximumAccess_, rows_.size() - first); }

  /// The rows from `first` on, until the next access. Throws `std::bad_alloc`.
  JBLOCKARRAY access(std::size_t first, std::size_t count, bool writable, std::int64_t& heldBytes) {
    if (count > slots_.size()) makeSlots(count, heldBytes);
    for (std::size_t i = 0; i < count; ++i) {
      // Windows that move on by less than their height keep the rows that they share.
      Slot& slot = slots_[(first + i) % slots_.size()];
      if (slot.row != first + i) {
        unload(slot, heldBytes);
        load(slot, first + i);
      }
      slot.dirty = slot.dirty || writable;
      window_[i] = slot.blocks.get();
    }
    return window_.data();
  }

 private:
  static constexpr auto noRow = static_cast<std::size_t>(-1);

  /// A plain row. All zero while it belongs to no row.
  struct Slot {
    std::unique_ptr<JBLOCK[]> blocks;
    std::size_t row = noRow;
    bool dirty = false;
  };

  void makeSlots(std::size_t count, std::int64_t& heldBytes) {
    for (Slot& slot : slots_) unload(slot, heldBytes);
    heldBytes += static_cast<std::int64_t>((count - slots_.size()) * blocksPerRow_ * sizeof(JBLOCK));
    slots_.resize(count);
    window_.resize(count);
    for (Slot& slot : slots_) {
      if (!slot.blocks) slot.blocks = std::make_unique<JBLOCK[]>(blocksPerRow_);
    }
  }

  void load(Slot& slot, std::size_t row) {
    slot.row = row;
    if (rows_[row].empty()) return;
    const std::uint8_t* from = rows_[row].data();
    for (std::size_t b = 0; b < blocksPerRow_; ++b) slot.blocks[b][0] = take<JCOEF>(from);
    const std::uint8_t* groups = from;
    from += groups_ * sizeof(std::uint64_t);
    for (std::size_t start = 0; start < blocksPerRow_; start += blocksPerGroup) {
      forEachBit(take<std::uint64_t>(groups), [&](std::size_t b) {
        JCOEF* const block = slot.blocks[start + b];
        const auto used = take<std::uint64_t>(from);
        if (used == allUsed) {
          std::memcpy(block + 1, from, othersBytes);
          from += othersBytes;
        } else {
          forEachBit(used, [&](std::size_t i) { block[placeOf(i)] = take<JCOEF>(from); });
        }
      });
    }
  }

  void unload(Slot& slot, std::int64_t& heldBytes) {
    if (slot.row == noRow) return;
    if (slot.dirty) {
      encode(slot, heldBytes);
    } else if (!rows_[slot.row].empty()) {
      for (std::size_t b = 0; b < blocksPerRow_; ++b) slot.blocks[b][0] = 0;
      const std::uint8_t* groups = rows_[slot.row].data() + blocksPerRow_ * sizeof(JCOEF);
      for (std::size_t start = 0; start < blocksPerRow_; start += blocksPerGroup) {
        forEachBit(take<std::uint64_t>(groups), [&](std::size_t b) { clear(slot.blocks[start + b]); });
      }
    }
    slot.row = noRow;
    slot.dirty = false;
  }

  void encode(Slot& slot, std::int64_t& heldBytes) {
    std::uint8_t* first = scratch_.get();
    std::uint8_t* groups = first + blocksPerRow_ * sizeof(JCOEF);
    std::uint8_t* to = groups + groups_ * sizeof(std::uint64_t);
    std::uint64_t any = 0;
    for (std::size_t start = 0; start < blocksPerRow_; start += blocksPerGroup) {
      const std::size_t count = std::min(blocksPerGroup, blocksPerRow_ - start);
      std::uint64_t usedBlocks = 0;
      for (std::size_t b = 0; b < count; ++b) {
        JCOEF* const block = slot.blocks[start + b];
        any |= static_cast<std::uint16_t>(block[0]);
        first = put(first, block[0]);
        std::uint64_t used = usedCoefficients(block);
        if (used == 0) {
          block[0] = 0;
          continue;
        }
        if (isDense(used)) used = allUsed;
        usedBlocks |= std::uint64_t{1} << b;
        to = put(to, used);
        if (used == allUsed) {
          std::memcpy(to, block + 1, othersBytes);
          to += othersBytes;
        } else {
          forEachBit(used, [&](std::size_t i) { to = put(to, block[placeOf(i)]); });
        }
        clear(block);
      }
      groups = put(groups, usedBlocks);
      any |= usedBlocks;
    }
    std::vector<std::uint8_t>& row = rows_[slot.row];
    heldBytes -= static_cast<std::int64_t>(row.capacity());
    if (any == 0) {
      row.clear();
    } else {
      row.assign(scratch_.get(), to);
    }
    heldBytes += static_cast<std::int64_t>(row.capacity());
  }

  /// By vectors: a call of memset, or what compilers put in its place, takes as long as all else.
  static void clear(JCOEF* block) {
    const Lanes zero{};
    for (std::size_t y = 0; y < 8; ++y) std::memcpy(block + y * 8, &zero, sizeof zero);
  }

  std::size_t blocksPerRow_, groups_, maximumAccess_;
  std::vector<std::vector<std::uint8_t>> rows_;
  /// Room for a coded row: the first coefficients, the bits of the groups, and of each block that has more
  /// its bits and all of its other coefficients.
  std::unique_ptr<std::uint8_t[]> scratch_;
  std::vector<Slot> slots_;
  std::vector<JBLOCKROW> window_;
};

SparseCoefficients::SparseCoefficients(jpeg_decompress_struct& jpeg) : BlockArrays(jpeg) {}

SparseCoefficients::~SparseCoefficients() = default;

std::int64_t SparseCoefficients::blockCount(const jpeg_decompress_struct& jpeg) {
  std::int64_t count = 0;
  for (int c = 0; c < jpeg.num_components; ++c) {
    const jpeg_component_info& component = jpeg.comp_info[c];
    const auto padded = [](std::int64_t blocks, int factor) {
      return (blocks + factor - 1) / factor * factor;
    };
    count += padded(component.width_in_blocks, component.h_samp_factor) *
             padded(component.height_in_blocks, component.v_samp_factor);
  }
  return count;
}

bool SparseCoefficients::maySmooth(const jpeg_decompress_struct& jpeg) {
  if (!jpeg.progressive_mode || jpeg.do_block_smoothing == FALSE || jpeg.coef_bits == nullptr) return false;
  const auto* bits = jpeg.coef_bits;
  return std::any_of(bits, bits + jpeg.num_components, [](const int(&component)[DCTSIZE2]) {
    return std::any_of(component + 1, component + DCTSIZE2, [](int missing) { return missing != 0; });
  });
}

void SparseCoefficients::add(std::size_t blocksPerRow, std::size_t rows, std::size_t maximumAccess) {
  arrays_.push_back(std::make_unique<Array>(blocksPerRow, rows, maximumAccess));
}

JBLOCKARRAY SparseCoefficients::access(std::size_t component, std::size_t first, std::size_t count,
                                       bool writable) {
  Array& array = *arrays_[component];
  if (!array.mayAccess(first, count)) return nullptr;
  // Smoothing, libjpeg-turbo 2.1 reads rows of the array behind those that it asked for.
  const bool wide = !writable && maySmooth(jpeg());
  const JBLOCKARRAY rows = array.access(first, wide ? array.widened(first) : count, writable, heldBytes_);
  return heldBytes_ <= ImageLimits::maximumResidentBytes ? rows : nullptr;
}

}  // namespace tidewell
