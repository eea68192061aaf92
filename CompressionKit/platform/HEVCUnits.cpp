#include "CompressionKit/platform/HEVCUnits.h"

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
  /// ue(v): an Exp-Golomb code.
  std::uint64_t unsignedCode() {
    int zeros = 0;
    while (zeros < 33 && good() && number(1) == 0) ++zeros;
    return (std::uint64_t{1} << zeros) - 1 + number(zeros);
  }
  void skip(std::size_t bits) { position_ += bits; }

 private:
  std::string data_;
  std::size_t position_ = 0;
};

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

std::optional<PictureSize> pictureSize(std::string_view unit) {
  if (unit.size() < 2) return std::nullopt;
  Bits bits(unit.substr(2, parameterSetHead));
  bits.skip(4);
  const auto subLayers = static_cast<int>(bits.number(3));
  bits.skip(1 + 96);  // nesting flag; profile, tier and level of all layers
  std::size_t subLayerBits = 0;
  for (int i = 0; i < subLayers; ++i) {
    if (bits.number(1) != 0) subLayerBits += 88;
    if (bits.number(1) != 0) subLayerBits += 8;
  }
  if (subLayers > 0) bits.skip(static_cast<std::size_t>(8 - subLayers) * 2);
  bits.skip(subLayerBits);
  bits.unsignedCode();  // identifier
  const std::uint64_t chroma = bits.unsignedCode();
  if (chroma == 3) bits.skip(1);
  const std::uint64_t width = bits.unsignedCode(), height = bits.unsignedCode();
  std::uint64_t across = 0, down = 0;  // hidden at the edges, in chroma samples
  if (bits.number(1) != 0) {
    across = bits.unsignedCode() + bits.unsignedCode();
    down = bits.unsignedCode() + bits.unsignedCode();
  }
  across *= chroma == 1 || chroma == 2 ? 2 : 1;
  down *= chroma == 1 ? 2 : 1;
  if (!bits.good() || width > 0xffffffff || height > 0xffffffff || across >= width || down >= height)
    return std::nullopt;
  return PictureSize{width * height, width - across, height - down};
}

}  // namespace tidewell::hevc
