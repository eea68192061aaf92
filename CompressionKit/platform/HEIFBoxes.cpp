#include "CompressionKit/platform/HEIFBoxes.h"

#include <algorithm>
#include <array>
#include <vector>

namespace tidewell::heif {
namespace {

/// A reader that answers zero beyond the end and remembers that it did.
class Bytes {
 public:
  explicit Bytes(std::string_view data) : data_(data) {}

  bool good() const { return good_; }
  bool atEnd() const { return position_ >= data_.size(); }
  std::size_t remaining() const { return data_.size() - position_; }

  std::uint64_t number(std::size_t bytes) {
    std::uint64_t value = 0;
    for (const char byte : take(bytes)) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
  }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint32_t u16() { return static_cast<std::uint32_t>(number(2)); }
  std::uint32_t u8() { return static_cast<std::uint32_t>(number(1)); }

  /// Empty when fewer are left.
  std::string_view take(std::size_t bytes) {
    if (bytes > remaining()) {
      good_ = false;
      position_ = data_.size();
      return {};
    }
    const auto taken = data_.substr(position_, bytes);
    position_ += bytes;
    return taken;
  }

 private:
  std::string_view data_;
  std::size_t position_ = 0;
  bool good_ = true;
};

struct Box {
  std::string_view type;
  std::string_view payload;
};

/// The next box, or nothing at the end or where the bytes are no box.
std::optional<Box> nextBox(Bytes& bytes) {
  if (bytes.atEnd()) return std::nullopt;
  std::uint64_t size = bytes.u32();
  const std::string_view type = bytes.take(4);
  std::uint64_t header = 8;
  if (size == 1) {
    size = bytes.number(8);
    header = 16;
  } else if (size == 0) {
    size = header + bytes.remaining();
  }
  if (!bytes.good() || size < header || size - header > bytes.remaining()) return std::nullopt;
  return Box{type, bytes.take(static_cast<std::size_t>(size - header))};
}

std::optional<std::string_view> payloadOf(std::string_view type, std::string_view boxes) {
  Bytes bytes(boxes);
  while (const auto box = nextBox(bytes)) {
    if (box->type == type) return box->payload;
  }
  return std::nullopt;
}

struct FullBox {
  std::uint32_t version = 0;
  std::uint32_t flags = 0;
};

FullBox fullBox(Bytes& bytes) {
  const auto version = bytes.u8();
  return {version, static_cast<std::uint32_t>(bytes.number(3))};
}

/// The properties of an item in the order in which they apply.
std::vector<Box> itemProperties(std::string_view meta, std::uint32_t itemID) {
  const auto iprp = payloadOf("iprp", meta);
  const auto ipco = iprp ? payloadOf("ipco", *iprp) : std::nullopt;
  if (!ipco) return {};
  std::vector<Box> all;
  for (Bytes bytes(*ipco); const auto box = nextBox(bytes);) all.push_back(*box);

  std::vector<Box> properties;
  for (Bytes boxes(*iprp); const auto box = nextBox(boxes);) {
    if (box->type != "ipma") continue;
    Bytes bytes(box->payload);
    const auto [version, flags] = fullBox(bytes);
    const std::size_t indexBytes = (flags & 1) != 0 ? 2 : 1;
    const std::uint64_t indexMask = indexBytes == 2 ? 0x7fff : 0x7f;  // above it: "essential"
    std::uint64_t entries = bytes.u32();
    for (; entries > 0 && bytes.good() && !bytes.atEnd(); --entries) {
      const std::uint32_t id = version == 0 ? bytes.u16() : bytes.u32();
      for (auto associations = bytes.u8(); associations > 0 && bytes.good(); --associations) {
        const std::uint64_t index = bytes.number(indexBytes) & indexMask;
        if (id == itemID && index >= 1 && index <= all.size()) properties.push_back(all[index - 1]);
      }
    }
  }
  return properties;
}

/// A turn or mirroring as a matrix on pixel positions, x to the right and y down.
struct Turn {
  int xx, xy, yx, yy;
  Turn after(const Turn& first) const {
    return {xx * first.xx + xy * first.yx, xx * first.xy + xy * first.yy, yx * first.xx + yy * first.yx,
            yx * first.xy + yy * first.yy};
  }
  bool operator==(const Turn&) const = default;
};

/// What turns the stored image of each Exif orientation upright, from 1 to 8.
constexpr std::array<Turn, 8> exifTurns = {{{1, 0, 0, 1},
                                            {-1, 0, 0, 1},
                                            {-1, 0, 0, -1},
                                            {1, 0, 0, -1},
                                            {0, 1, 1, 0},
                                            {0, -1, 1, 0},
                                            {0, -1, -1, 0},
                                            {0, 1, -1, 0}}};
constexpr Turn quarterCounterClockwise = exifTurns[7];
constexpr Turn mirroredTopToBottom = exifTurns[3];
constexpr Turn mirroredLeftToRight = exifTurns[1];

}  // namespace

std::optional<std::string_view> typeIdentifier(std::string_view head) {
  Bytes file(head);
  const std::uint64_t size = file.u32();
  if (file.take(4) != "ftyp" || size < 16) return std::nullopt;
  Bytes ftyp(file.take(std::min<std::size_t>(static_cast<std::size_t>(size) - 8, file.remaining())));

  const auto isOneOf = [](std::string_view brand, auto... names) { return ((brand == names) || ...); };
  const auto isHEVC = [&](std::string_view brand) {
    return isOneOf(brand, "heic", "heix", "heim", "heis", "hevc", "hevx", "hevm", "hevs");
  };
  const auto isAV1 = [&](std::string_view brand) { return isOneOf(brand, "avif", "avis"); };
  const auto isGeneral = [&](std::string_view brand) { return isOneOf(brand, "mif1", "mif2", "msf1"); };

  const std::string_view major = ftyp.take(4);
  if (isHEVC(major)) return "public.heic";
  if (isAV1(major)) return "public.avif";
  bool av1 = false;
  bool general = isGeneral(major);
  ftyp.take(4);  // minor version
  while (ftyp.remaining() >= 4) {
    const std::string_view brand = ftyp.take(4);
    if (isHEVC(brand)) return "public.heic";
    av1 = av1 || isAV1(brand);
    general = general || isGeneral(brand);
  }
  if (av1) return "public.avif";
  if (general) return "public.heif";
  return std::nullopt;
}

int orientation(std::string_view meta, std::uint32_t itemID) {
  Turn turn = exifTurns[0];
  for (const Box& property : itemProperties(meta, itemID)) {
    Bytes bytes(property.payload);
    if (property.type == "irot") {
      for (auto quarters = bytes.u8() & 3; quarters > 0; --quarters)
        turn = quarterCounterClockwise.after(turn);
    } else if (property.type == "imir") {
      turn = ((bytes.u8() & 1) != 0 ? mirroredLeftToRight : mirroredTopToBottom).after(turn);
    }
  }
  return static_cast<int>(std::find(exifTurns.begin(), exifTurns.end(), turn) - exifTurns.begin()) + 1;
}

}  // namespace tidewell::heif
