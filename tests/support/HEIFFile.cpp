// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/HEIFFile.h"

#include <algorithm>
#include <stdexcept>

#include "CompressionKit/codecs/HEIFItems.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell::test {
namespace {

std::string fullBox(std::string_view type, int version, const std::string& payload) {
  return box(type, number(static_cast<std::uint64_t>(version), 1) + number(0, 3) + payload);
}

}  // namespace

std::string number(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i));
  return text;
}

std::string box(std::string_view type, const std::string& payload) {
  return number(payload.size() + 8, 4) + std::string(type) + payload;
}

std::string ispe(std::uint32_t width, std::uint32_t height) {
  return fullBox("ispe", 0, number(width, 4) + number(height, 4));
}

std::string clap(std::uint32_t width, std::uint32_t height, std::int32_t right, std::int32_t down) {
  return box("clap", number(width, 4) + number(1, 4) + number(height, 4) + number(1, 4) +
                         number(static_cast<std::uint32_t>(right), 4) + number(2, 4) +
                         number(static_cast<std::uint32_t>(down), 4) + number(2, 4));
}

std::string nclx(int primaries, int transfer, int matrix) {
  std::string payload = "nclx";
  for (const int code : {primaries, transfer, matrix}) payload += number(static_cast<std::uint64_t>(code), 2);
  return box("colr", payload + number(0x80, 1));
}

HEIFFile::Item& HEIFFile::item(std::uint32_t id) {
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const Item& item) { return item.id == id; });
  if (found == items.end()) throw std::out_of_range("no such item");
  return *found;
}

HEIFFile& HEIFFile::without(std::string_view type) {
  std::erase_if(item(primary).properties,
                [&](const std::string& property) { return property.substr(4, 4) == type; });
  return *this;
}

HEIFFile HEIFFile::read(const URL& url) {
  const std::string file = files::read(url);
  const auto meta = heif::payloadOf("meta", file).value().substr(4);
  const heif::ReadAt readAt = [&](std::uint64_t offset, std::size_t bytes) {
    return file.substr(offset, bytes);
  };
  const auto locations = heif::itemLocations(meta, readAt);
  HEIFFile result;
  heif::Bytes pitm(heif::payloadOf("pitm", meta).value().substr(4));
  result.primary = pitm.u16();
  heif::Bytes iinf(heif::payloadOf("iinf", meta).value().substr(6));
  while (const auto infe = heif::nextBox(iinf)) {
    heif::Bytes in(infe->payload);
    const bool isHidden = (heif::fullBox(in).flags & 1) != 0;
    const std::uint32_t id = in.u16();
    in.u16();
    const auto location = locations.find(id);
    result.items.push_back({id,
                            std::string(in.take(4)),
                            isHidden,
                            {},
                            location == locations.end() ? "" : location->second.read(0, file.size())});
  }
  heif::forEachProperty(meta, [&](std::uint32_t id, const heif::Box& property) {
    result.item(id).properties.push_back(box(property.type, std::string(property.payload)));
  });
  heif::Bytes iref(heif::payloadOf("iref", meta).value_or(""));
  for (iref.u32(); const auto reference = heif::nextBox(iref);) {
    heif::Bytes in(reference->payload);
    result.references.push_back({std::string(reference->type), in.u16(), {}});
    for (auto count = in.u16(); count > 0; --count) result.references.back().to.push_back(in.u16());
  }
  return result;
}

std::string HEIFFile::bytes() const {
  std::string ftyp = brands.front() + number(0, 4);
  for (std::size_t i = 1; i < brands.size(); ++i) ftyp += brands[i];

  std::string infes, properties, associations, refs, mdat;
  std::size_t propertyCount = 0;
  for (const Item& item : items) {
    infes += box("infe", number(2, 1) + number(item.hidden ? 1 : 0, 3) + number(item.id, 2) + number(0, 2) +
                             item.type + '\0');
    associations += number(item.id, 2) + number(item.properties.size(), 1);
    for (const std::string& property : item.properties) {
      properties += property;
      associations += number(++propertyCount, 2);
    }
    mdat += item.data;
  }
  for (std::uint32_t i = 0; i < repeats; ++i) {
    associations += number(primary, 2) + number(255, 1);
    for (int k = 0; k < 255; ++k) associations += number(propertyCount, 2);
  }
  for (const Reference& reference : references) {
    std::string payload = number(reference.from, 2) + number(reference.to.size(), 2);
    for (const auto id : reference.to) payload += number(id, 2);
    refs += box(reference.type, payload);
  }
  const auto meta = [&](std::size_t offset) {
    std::string iloc = number(0x4400, 2) + number(items.size(), 2);
    for (const Item& item : items) {
      iloc +=
          number(item.id, 2) + number(0, 2) + number(1, 2) + number(offset, 4) + number(item.data.size(), 4);
      offset += item.data.size();
    }
    const std::string ipma = number(0, 1) + number(1, 3) + number(items.size() + repeats, 4) + associations;
    return fullBox("meta", 0,
                   fullBox("hdlr", 0, number(0, 4) + "pict" + std::string(13, '\0')) +
                       fullBox("pitm", 0, number(primary, 2)) + fullBox("iloc", 0, iloc) +
                       fullBox("iinf", 0, number(items.size(), 2) + infes) +
                       (refs.empty() ? "" : fullBox("iref", 0, refs)) +
                       box("iprp", box("ipco", properties) + box("ipma", ipma)));
  };
  const std::string head = box("ftyp", ftyp);
  return head + meta(head.size() + meta(0).size() + 8) + box("mdat", mdat);
}

void HEIFFile::write(const URL& url) const {
  files::writeAtomically(url, bytes(), files::Durability::cached);
}

HEIFFile grid(const std::vector<HEIFFile>& tiles, int rows, int columns, std::uint32_t width,
              std::uint32_t height) {
  HEIFFile result;
  const auto last = static_cast<std::uint32_t>(tiles.size()) + 1;
  result.primary = last;
  HEIFFile::Reference reference{"dimg", last, {}};
  for (HEIFFile tile : tiles) {
    const auto id = static_cast<std::uint32_t>(result.items.size()) + 1;
    HEIFFile::Item item = tile.item(tile.primary);
    item.id = id;
    item.hidden = true;
    result.items.push_back(item);
    reference.to.push_back(id);
  }
  const std::string layout = number(0, 1) + number(1, 1) + number(static_cast<std::uint64_t>(rows) - 1, 1) +
                             number(static_cast<std::uint64_t>(columns) - 1, 1) + number(width, 4) +
                             number(height, 4);
  std::vector<std::string> properties = {ispe(width, height)};
  for (const std::string& property : result.items.front().properties) {
    if (property.substr(4, 4) == "pixi") properties.push_back(property);
  }
  result.items.push_back({last, "grid", false, properties, layout});
  result.references.push_back(reference);
  return result;
}

}  // namespace tidewell::test
