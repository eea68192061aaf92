// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEIFBoxes.h"

#include <algorithm>

namespace tidewell::heif {

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

FullBox fullBox(Bytes& bytes) {
  const auto version = bytes.u8();
  return {version, static_cast<std::uint32_t>(bytes.number(3))};
}

std::optional<Container> container(std::string_view head) {
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
  if (isHEVC(major)) return Container::heic;
  if (isAV1(major)) return Container::avif;
  bool av1 = false;
  bool general = isGeneral(major);
  ftyp.take(4);  // minor version
  while (ftyp.remaining() >= 4) {
    const std::string_view brand = ftyp.take(4);
    if (isHEVC(brand)) return Container::heic;
    av1 = av1 || isAV1(brand);
    general = general || isGeneral(brand);
  }
  if (av1) return Container::avif;
  if (general) return Container::heif;
  return std::nullopt;
}

}  // namespace tidewell::heif
