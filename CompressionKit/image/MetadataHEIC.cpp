// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <cstdint>
#include <set>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/HEIFItems.h"
#include "CompressionKit/codecs/ImageProperties.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using Kind = Piece::Kind;
using namespace std::string_view_literals;
using heif::Bytes;

/// Bytes of the file; none when they reach beyond its end.
heif::ReadAt reader(const ImageInput& file) {
  const auto size = static_cast<std::uint64_t>(file.size());
  return [&file, size](std::uint64_t offset, std::size_t bytes) {
    std::string data;
    if (offset > size || bytes > size - offset) return data;
    data.resize(bytes);
    if (file.readAt(static_cast<std::int64_t>(offset), data.data(), bytes) != static_cast<ssize_t>(bytes)) {
      data.clear();
    }
    return data;
  };
}

/// The payload of the file's "meta" box, behind version and flags.
std::string metaOf(const heif::ReadAt& readAt) {
  constexpr std::uint64_t maximum = ImageLimits::maximumMetadataBytes;
  constexpr int maximumBoxes = 1000;
  std::uint64_t offset = 0;
  for (int boxes = 0; boxes < maximumBoxes; ++boxes) {
    std::string head = readAt(offset, 16);
    if (head.empty()) head = readAt(offset, 8);
    Bytes bytes(head);
    std::uint64_t size = bytes.u32();
    const auto type = bytes.take(4);
    const std::uint64_t headBytes = size == 1 ? 16 : 8;
    if (size == 1) size = bytes.number(8);
    if (!bytes.good() || size < headBytes) break;  // a box to the end of the file is no "meta"
    if (type == "meta" && size >= headBytes + 4 && size <= maximum) {
      return readAt(offset + headBytes + 4, static_cast<std::size_t>(size - headBytes - 4));
    }
    if (size > UINT64_MAX - offset) break;
    offset += size;
  }
  throw CompressionError::invalidImage();
}

std::uint32_t primaryItem(std::string_view meta) {
  Bytes bytes(heif::payloadOf("pitm", meta).value_or(""));
  return heif::fullBox(bytes).version == 0 ? bytes.u16() : bytes.u32();
}

/// The items that describe some image, and those that describe the primary one.
struct Descriptions {
  std::set<std::uint32_t> all, ofPrimary;

  explicit Descriptions(std::string_view meta) {
    const std::uint32_t primary = primaryItem(meta);
    Bytes bytes(heif::payloadOf("iref", meta).value_or(""));
    const bool isWide = heif::fullBox(bytes).version != 0;
    const auto id = [&](Bytes& from) { return isWide ? from.u32() : from.u16(); };
    while (const auto box = heif::nextBox(bytes)) {
      if (box->type != "cdsc") continue;
      Bytes reference(box->payload);
      const std::uint32_t item = id(reference);
      all.insert(item);
      for (auto count = reference.u16(); count > 0 && reference.good(); --count) {
        if (id(reference) == primary) ofPrimary.insert(item);
      }
    }
  }
  /// One that describes nothing is of the file, which has one image.
  bool isOfPrimary(std::uint32_t item) const { return ofPrimary.contains(item) || !all.contains(item); }
};

struct Item {
  std::uint32_t id;
  Kind kind;
};

std::vector<Item> metadataItems(std::string_view meta) {
  std::vector<Item> items;
  Bytes bytes(heif::payloadOf("iinf", meta).value_or(""));
  bytes.take(heif::fullBox(bytes).version == 0 ? 2 : 4);  // their number
  while (const auto box = heif::nextBox(bytes)) {
    if (box->type != "infe") continue;
    Bytes entry(box->payload);
    const auto version = heif::fullBox(entry).version;
    if (version < 2) continue;  // has no type
    const std::uint32_t id = version == 2 ? entry.u16() : entry.u32();
    entry.take(2);  // protection
    const auto type = entry.take(4);
    const auto text = [&] {
      const auto rest = Bytes(entry).take(entry.remaining());
      const auto found = entry.take(std::min(rest.find('\0'), rest.size()));
      entry.take(1);
      return found;
    };
    text();  // name
    if (type == "Exif") items.push_back({id, Kind::exif});
    if (type == "mime" && text() == "application/rdf+xml" && text().empty()) items.push_back({id, Kind::xmp});
  }
  return items;
}

/// Bytes of an Exif item before its byte-order mark: four that say how many more.
std::size_t exifPrefix(std::string_view data) {
  const std::size_t offset = 4 + std::size_t{Bytes(data).u32()};
  if (offset > data.size()) return data.size();
  return data.substr(offset).starts_with("Exif\0\0"sv) ? offset + 6 : offset;
}

}  // namespace

void readHEIC(const ImageInput& file, Pieces& pieces, const StopToken& stop) {
  const auto readAt = reader(file);
  const std::string meta = metaOf(readAt);
  const Descriptions descriptions(meta);
  try {
    const auto locations = heif::itemLocations(meta, readAt);
    for (const Item& item : metadataItems(meta)) {
      stop.throwIfStopped();
      const auto location = locations.find(item.id);
      if (location == locations.end() || !descriptions.isOfPrimary(item.id)) continue;
      Piece piece{.kind = item.kind, .whole = location->second.read(0, maximumBytes)};
      if (item.kind == Kind::exif) piece.prefix = exifPrefix(piece.whole);
      pieces.add(std::move(piece));
    }
  } catch (const ImageDecodeError&) {
    throw CompressionError::invalidImage();
  }
}

}  // namespace tidewell::metadata
