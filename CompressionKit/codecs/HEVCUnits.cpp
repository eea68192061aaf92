// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEVCUnits.h"

#include <algorithm>
#include <string>

namespace tidewell::hevc {
namespace {

/// Bits of a unit (7.3.1): a byte 3 after two zero bytes is no part of the data.
class Bits {
 public:
  explicit Bits(std::string_view unit) {
    int zeros = 0;
    for (const char byte : unit) {
      if (zeros >= 2 && byte == 3) {
        zeros = 0;
        continue;
      }
      zeros = byte == 0 ? zeros + 1 : 0;
      data_ += byte;
    }
  }
  bool good() const { return position_ <= data_.size() * 8; }
  std::uint64_t number(int bits) {
    std::uint64_t value = 0;
    for (; bits > 0; --bits, ++position_) {
      const bool bit = position_ < data_.size() * 8 &&
                       (static_cast<unsigned char>(data_[position_ / 8]) >> (7 - position_ % 8) & 1) != 0;
      value = value << 1 | (bit ? 1 : 0);
    }
    return value;
  }
  bool flag() { return number(1) != 0; }
  /// ue(v) or, for what is passed over, se(v): an Exp-Golomb code.
  std::uint64_t code() {
    int zeros = 0;
    while (zeros < 33 && good() && number(1) == 0) ++zeros;
    return (std::uint64_t{1} << zeros) - 1 + number(zeros);
  }
  void skip(std::size_t bits) { position_ += bits; }
  void skipCodes(std::uint64_t count) {
    for (; count > 0 && good(); --count) code();
  }

 private:
  std::string data_;
  std::size_t position_ = 0;
};

/// scaling_list_data (7.3.4)
void skipScalingLists(Bits& bits) {
  for (int size = 0; size < 4; ++size) {
    for (int matrix = 0; matrix < 6 && bits.good(); matrix += size == 3 ? 3 : 1) {
      const bool isExplicit = bits.flag();
      bits.skipCodes(isExplicit ? (size == 0 ? 16U : 64U) + (size > 1 ? 1U : 0U) : 1U);
    }
  }
}

/// st_ref_pic_set (7.3.7), all of them.
void skipReferenceSets(Bits& bits) {
  std::uint64_t pictures = 0;  // of the set before
  const std::uint64_t sets = bits.code();
  for (std::uint64_t set = 0; set < sets && bits.good(); ++set) {
    if (set > 0 && bits.flag()) {
      bits.skip(1);
      bits.code();
      std::uint64_t kept = 0;
      for (std::uint64_t i = 0; i <= pictures && bits.good(); ++i) kept += bits.flag() || bits.flag() ? 1 : 0;
      pictures = kept;
      continue;
    }
    pictures = bits.code() + bits.code();
    for (std::uint64_t i = 0; i < pictures && bits.good(); ++i) {
      bits.code();
      bits.skip(1);
    }
  }
}

/// The rest of a sequence parameter set, from the bit depths to the video usability information (E.2.1).
std::optional<Sequence::Colors> colors(Bits& bits, int subLayers) {
  bits.skipCodes(2);
  const auto orderBits = static_cast<std::size_t>(bits.code() + 4);
  bits.skipCodes(3 * (bits.flag() ? static_cast<std::uint64_t>(subLayers) + 1 : 1));
  bits.skipCodes(6);
  if (bits.flag() && bits.flag()) skipScalingLists(bits);
  bits.skip(2);
  if (bits.flag()) {  // PCM
    bits.skip(8);
    bits.skipCodes(2);
    bits.skip(1);
  }
  skipReferenceSets(bits);
  if (bits.flag()) {
    for (auto count = bits.code(); count > 0 && bits.good(); --count) bits.skip(orderBits + 1);
  }
  bits.skip(2);
  if (!bits.flag()) return std::nullopt;
  constexpr std::uint64_t explicitRatio = 255;
  if (bits.flag() && bits.number(8) == explicitRatio) bits.skip(32);
  if (bits.flag()) bits.skip(1);  // overscan
  if (!bits.flag()) return std::nullopt;
  bits.skip(4);  // video format, full range
  if (!bits.flag()) return std::nullopt;
  const auto primaries = static_cast<int>(bits.number(8)), transfer = static_cast<int>(bits.number(8));
  if (!bits.good()) return std::nullopt;
  return Sequence::Colors{primaries, transfer};
}

}  // namespace

std::optional<Unit> unitAt(std::string_view head) {
  if (head.size() < 2) return std::nullopt;
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(head[i]); };
  Unit unit;
  unit.type = byte(0) >> 1 & 63;
  unit.layer = (byte(0) & 1) << 5 | byte(1) >> 3;
  unit.isSlice = unit.type < 32;
  unit.startsPicture = unit.isSlice && head.size() > 2 && (byte(2) & 0x80) != 0;
  return unit;
}

std::optional<Sequence> sequence(std::string_view unit) {
  if (unit.size() < 2) return std::nullopt;
  Bits bits(unit.substr(2, parameterSetHead));
  bits.skip(4);
  const auto subLayers = static_cast<int>(bits.number(3));
  bits.skip(1 + 96);  // nesting flag; profile, tier and level of all layers
  std::size_t subLayerBits = 0;
  for (int i = 0; i < subLayers; ++i) {
    if (bits.flag()) subLayerBits += 88;
    if (bits.flag()) subLayerBits += 8;
  }
  if (subLayers > 0) bits.skip(static_cast<std::size_t>(8 - subLayers) * 2);
  bits.skip(subLayerBits);
  bits.code();  // identifier
  const std::uint64_t chroma = bits.code();
  if (chroma == 3) bits.skip(1);
  const std::uint64_t width = bits.code(), height = bits.code();
  std::uint64_t across = 0, down = 0;  // hidden at the edges, in chroma samples
  if (bits.flag()) {
    across = bits.code() + bits.code();
    down = bits.code() + bits.code();
  }
  across *= chroma == 1 || chroma == 2 ? 2 : 1;
  down *= chroma == 1 ? 2 : 1;
  if (!bits.good() || width > 0xffffffff || height > 0xffffffff || across >= width || down >= height)
    return std::nullopt;
  return Sequence{width * height, width - across, height - down, colors(bits, subLayers)};
}

}  // namespace tidewell::hevc
