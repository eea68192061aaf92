#include <algorithm>
#include <map>
#include <optional>
#include <vector>

#include "CompressionKit/platform/HEIFBoxes.h"
#include "CompressionKit/platform/HEIFItems.h"
#include "CompressionKit/platform/ImageSource.h"

namespace tidewell::heif {
namespace {

/// A file has one stream per tile, with a few units each; more than these many in all is no photo.
constexpr int maximumUnits = 200000;
constexpr std::size_t parameterSetBytes = 256;  // more than the part of one that we read can take

[[noreturn]] void refuse(const std::string& reason) {
  throw ImageDecodeError("HEIF limits: " + reason);
}

/// The data of one item, wherever its pieces lie.
class ItemData {
 public:
  struct Extent {
    std::uint64_t offset;
    std::uint64_t length;
  };
  ItemData(std::vector<Extent> extents, bool inMeta, std::string_view idat, const ReadAt& readAt)
      : extents_(std::move(extents)), inMeta_(inMeta), idat_(idat), readAt_(readAt) {}

  /// Fewer at the end.
  std::string read(std::uint64_t position, std::size_t bytes) const {
    std::string data;
    for (const auto& [offset, length] : extents_) {
      if (position >= length) {
        position -= length;
        continue;
      }
      const auto wanted =
          static_cast<std::size_t>(std::min<std::uint64_t>(bytes - data.size(), length - position));
      const std::uint64_t at = offset + position;
      if (inMeta_) {
        if (at < idat_.size()) data += idat_.substr(at, wanted);
      } else {
        data += readAt_(at, wanted);
      }
      position = 0;
      if (data.size() >= bytes) break;
    }
    return data;
  }

 private:
  std::vector<Extent> extents_;
  bool inMeta_;
  std::string_view idat_;
  const ReadAt& readAt_;
};

/// Where the items' data lies ("iloc"); an item that is named twice is here twice.
std::multimap<std::uint32_t, ItemData> itemLocations(std::string_view meta, const ReadAt& readAt) {
  std::multimap<std::uint32_t, ItemData> items;
  Bytes bytes(payloadOf("iloc", meta).value_or(""));
  const std::string_view idat = payloadOf("idat", meta).value_or("");
  const auto version = fullBox(bytes).version;
  const auto sizes = bytes.u16();
  const auto size = [&](unsigned shift) { return sizes >> shift & 15U; };
  std::uint64_t count = version < 2 ? bytes.u16() : bytes.u32();
  for (; count > 0 && bytes.good(); --count) {
    const std::uint32_t id = version < 2 ? bytes.u16() : bytes.u32();
    const std::uint32_t method = version == 0 ? 0 : bytes.u16() & 15U;
    bytes.take(2);  // data reference
    const std::uint64_t base = bytes.number(size(4));
    std::vector<ItemData::Extent> extents;
    for (auto number = bytes.u16(); number > 0 && bytes.good(); --number) {
      if (version > 0) bytes.take(size(0));
      const std::uint64_t offset = base + bytes.number(size(12));
      extents.push_back({offset, bytes.number(size(8))});
    }
    if (method > 1) refuse("data of an item inside another");
    items.emplace(id, ItemData(std::move(extents), method == 1, idat, readAt));
  }
  return items;
}

/// Bits of a NAL unit (ITU-T H.265, 7.3.1): a byte 3 after two zero bytes is no part of the data.
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

/// The pixels that a sequence parameter set announces (ITU-T H.265, 7.3.2.2), by the head of its NAL unit.
std::optional<std::uint64_t> codedPixels(std::string_view unit) {
  Bits bits(unit.substr(2));
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
  if (bits.unsignedCode() == 3) bits.skip(1);
  const std::uint64_t width = bits.unsignedCode();
  const std::uint64_t height = bits.unsignedCode();
  if (!bits.good() || width > 0xffffffff || height > 0xffffffff) return std::nullopt;
  return width * height;
}

void checkUnit(std::string_view head, const Limits& limits) {
  if (head.size() < 2) return;
  const int type = static_cast<unsigned char>(head[0]) >> 1 & 63;
  const int layer = (head[0] & 1) << 5 | static_cast<unsigned char>(head[1]) >> 3;
  constexpr int sequenceParameterSet = 33;
  if (type != sequenceParameterSet || layer != 0) return;  // decoders of one layer pass over the others
  if (codedPixels(head).value_or(limits.maximumCodedPixels + 1) > limits.maximumCodedPixels) {
    refuse("coded picture too large");
  }
}

/// The parameter sets of every "hvcC" property (ISO/IEC 14496-15, 8.3.3.1).
void checkConfigurations(std::string_view meta, const Limits& limits) {
  Bytes properties(payloadOf("ipco", payloadOf("iprp", meta).value_or("")).value_or(""));
  while (const auto box = nextBox(properties)) {
    if (box->type != "hvcC") continue;
    Bytes bytes(box->payload);
    bytes.take(22);
    for (auto arrays = bytes.u8(); arrays > 0 && bytes.good(); --arrays) {
      bytes.take(1);
      for (auto units = bytes.u16(); units > 0 && bytes.good(); --units)
        checkUnit(bytes.take(bytes.u16()), limits);
    }
  }
}

/// The units of a stream: each behind its length in four bytes.
void checkStream(const ItemData& data, const Limits& limits, int& units) {
  for (std::uint64_t position = 0;; ++units) {
    if (units >= maximumUnits) refuse("too many units");
    const std::string head = data.read(position, 6);
    if (head.size() < 6) return;
    Bytes bytes(head);
    const std::uint64_t length = bytes.u32();
    if ((static_cast<unsigned char>(head[4]) >> 1 & 63) == 33) {
      checkUnit(data.read(position + 4,
                          static_cast<std::size_t>(std::min<std::uint64_t>(length, parameterSetBytes))),
                limits);
    }
    position += 4 + length;
  }
}

/// A grid or an overlay: version, flags (bit 0: 32-bit sizes), then what is theirs, then the size of the
/// whole.
void checkCanvas(const ItemData& data, bool isGrid, const Limits& limits) {
  const std::string head = data.read(0, 18);
  Bytes bytes(head);
  bytes.take(1);
  const std::size_t sizeBytes = (bytes.u8() & 1) != 0 ? 4 : 2;
  if (isGrid) {
    const std::uint64_t rows = bytes.u8() + 1;
    if (rows * (bytes.u8() + 1) > limits.maximumTiles) refuse("too many tiles");
  } else {
    bytes.take(8);  // fill colour
  }
  const std::uint64_t width = bytes.number(sizeBytes);
  const std::uint64_t height = bytes.number(sizeBytes);
  if (!bytes.good() || width * height > limits.maximumPixels) refuse("grid or overlay too large");
}

}  // namespace

void checkSizes(std::string_view meta, const ReadAt& readAt, const Limits& limits) {
  checkConfigurations(meta, limits);
  const auto locations = itemLocations(meta, readAt);
  int units = 0;
  Bytes bytes(payloadOf("iinf", meta).value_or(""));
  bytes.take(fullBox(bytes).version == 0 ? 2 : 4);  // number of entries; the boxes tell it too
  while (const auto box = nextBox(bytes)) {
    Bytes entry(box->payload);
    const auto version = fullBox(entry).version;
    if (box->type != "infe" || version < 2) continue;
    const std::uint32_t id = version == 2 ? entry.u16() : entry.u32();
    entry.take(2);  // protection
    const std::string_view type = entry.take(4);
    const auto [first, last] = locations.equal_range(id);
    for (auto location = first; location != last; ++location) {
      if (type == "grid" || type == "iovl") checkCanvas(location->second, type == "grid", limits);
      if (type == "hvc1" || type == "hev1") checkStream(location->second, limits, units);
    }
  }
}

}  // namespace tidewell::heif
