// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEIFLimits.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/HEIFItems.h"
#include "CompressionKit/codecs/HEVCUnits.h"
#include "CompressionKit/codecs/ImageSource.h"

namespace tidewell::heif {
namespace {

/// A file has one stream per tile, with a few units each; more than these many in all is no photo.
constexpr int maximumUnits = 200000;
/// Turns, mirrorings and crops of one item; each costs a pass over the whole image.
constexpr int maximumTransforms = 8;
/// Of images made of images. An alpha image counts as one more level.
constexpr int maximumDepth = 5;
/// Decoding a picture costs at least as much as these pixels.
constexpr std::uint64_t minimumWork = 1 << 16;

struct Item {
  bool isCoded = false;
  std::uint64_t codedPixels = 0;  ///< of the largest picture that its parameter sets announce
  std::uint64_t width = std::numeric_limits<std::uint64_t>::max();  ///< of the smallest
  std::uint64_t height = std::numeric_limits<std::uint64_t>::max();
  int transforms = 0;
  bool isDerived = false;
  struct Grid {
    std::uint64_t rows, columns, width, height;
  };
  std::optional<Grid> grid;
  std::vector<std::uint32_t> parts;   ///< what it is made of
  std::vector<std::uint32_t> alphas;  ///< and what else belongs to it
  struct Work {
    std::uint64_t pixels = 0;
    int levels = 0;  ///< of images that it is made of
  };
  std::optional<Work> work;

  void announces(const hevc::Sequence& size) {
    codedPixels = std::max(codedPixels, size.codedPixels);
    width = std::min(width, size.width);
    height = std::min(height, size.height);
  }
};

class Check {
 public:
  Check(std::string_view meta, const ReadAt& readAt, const Limits& limits)
      : meta_(meta), readAt_(readAt), limits_(limits) {}

  void run() {
    readItems();
    readProperties();
    readReferences();
    for (auto& [id, item] : items_) {
      if (item.grid) checkTiles(*item.grid, item.parts);
      workFor(item, 0);
    }
  }

 private:
  void readItems() {
    const auto locations = itemLocations(meta_, readAt_);
    Bytes bytes(payloadOf("iinf", meta_).value_or(""));
    bytes.take(fullBox(bytes).version == 0 ? 2 : 4);  // number of entries; the boxes tell it too
    while (const auto box = nextBox(bytes)) {
      Bytes entry(box->payload);
      const auto version = fullBox(entry).version;
      if (box->type != "infe" || version < 2) continue;
      const std::uint32_t id = version == 2 ? entry.u16() : entry.u32();
      entry.take(2);  // protection
      const std::string_view type = entry.take(4);
      if (!known_.insert(id).second) refuse("an item that is named twice");
      if (known_.size() > maximumItems) refuse("too many items");
      if (type == "av01") refuse("not coded with HEVC");  // its pictures have other sizes to check
      // No camera writes overlays, and libheif 1.15 reads beyond its memory for some.
      if (type == "iovl") refuse("an overlay");
      const bool isGrid = type == "grid";
      const bool isCoded = type == "hvc1";
      if (!isGrid && !isCoded && type != "iden") continue;
      Item& item = items_[id];
      item.isCoded = isCoded;
      item.isDerived = !isCoded;
      const auto [first, last] = locations.equal_range(id);
      for (auto location = first; location != last; ++location) {
        if (isGrid) readGrid(location->second, item);
        if (isCoded) readStream(location->second, item);
      }
    }
  }

  void readGrid(const ItemData& data, Item& item) const {
    const std::string head = data.read(0, 12);
    Bytes bytes(head);
    bytes.take(1);  // version
    const std::size_t sizeBytes = (bytes.u8() & 1) != 0 ? 4 : 2;
    Item::Grid grid{};
    grid.rows = bytes.u8() + 1;
    grid.columns = bytes.u8() + 1;
    if (grid.rows * grid.columns > limits_.maximumTiles) refuse("too many tiles");
    grid.width = bytes.number(sizeBytes);
    grid.height = bytes.number(sizeBytes);
    if (!bytes.good() || grid.width * grid.height > limits_.maximumPixels) refuse("grid too large");
    item.grid = grid;
  }

  /// The units of a stream: each behind its length in four bytes.
  void readStream(const ItemData& data, Item& item) {
    int pictures = 0;
    for (std::uint64_t position = 0;; ++units_) {
      if (units_ >= maximumUnits) refuse("too many units");
      const std::string head = data.read(position, 4 + hevc::unitHead);
      const auto unit = hevc::unitAt(std::string_view(head).substr(std::min<std::size_t>(head.size(), 4)));
      if (!unit) return;
      Bytes bytes(head);
      const std::uint64_t length = bytes.u32();
      if (unit->layer == 0) {  // decoders of one layer pass over the others
        if (unit->startsPicture && ++pictures > 1) refuse("more than one picture in a stream");
        if (unit->type == hevc::sequenceParameterSet) {
          const auto wanted = std::min<std::uint64_t>(length, hevc::parameterSetHead);
          item.announces(sequenceOf(data.read(position + 4, static_cast<std::size_t>(wanted))));
        }
      }
      position += 4 + length;
    }
  }

  hevc::Sequence sequenceOf(std::string_view parameterSet) const {
    const auto size = hevc::sequence(parameterSet);
    if (!size || size->codedPixels > limits_.maximumCodedPixels) refuse("coded picture too large");
    return *size;
  }

  Item configuration(std::string_view payload) const {
    Item item;
    forEachUnit(payload, [&](std::string_view data) {
      const auto unit = hevc::unitAt(data);
      if (!unit || unit->layer != 0) return;
      if (unit->isSlice) refuse("a picture among parameter sets");
      if (unit->type == hevc::sequenceParameterSet) item.announces(sequenceOf(data));
    });
    return item;
  }

  void readProperties() {
    std::map<const char*, Item> configurations;  // by the place of the box, which many items may share
    forEachProperty(meta_, [&](std::uint32_t id, const Box& property) {
      const auto found = items_.find(id);
      if (found == items_.end()) return;
      Item& item = found->second;
      if (property.type == "hvcC") {
        const auto [known, isNew] = configurations.try_emplace(property.payload.data());
        if (isNew) known->second = configuration(property.payload);
        if (known->second.codedPixels == 0) return;
        item.announces({known->second.codedPixels, known->second.width, known->second.height, {}});
      }
      const bool transforms = property.type == "irot" || property.type == "imir" || property.type == "clap";
      if (transforms && ++item.transforms > maximumTransforms) refuse("too many turns");
    });
  }

  void readReferences() {
    Bytes bytes(payloadOf("iref", meta_).value_or(""));
    const bool wide = fullBox(bytes).version != 0;
    const auto id = [wide](Bytes& from) { return wide ? from.u32() : from.u16(); };
    while (const auto box = nextBox(bytes)) {
      if (box->type != "dimg" && box->type != "auxl") continue;
      Bytes reference(box->payload);
      const std::uint32_t from = id(reference);
      for (auto count = reference.u16(); count > 0 && reference.good(); --count) {
        const std::uint32_t to = id(reference);
        const auto owner = items_.find(box->type == "dimg" ? from : to);
        if (!reference.good() || owner == items_.end()) continue;
        if (box->type == "dimg") {
          owner->second.parts.push_back(to);
        } else if (items_.contains(from)) {
          owner->second.alphas.push_back(from);
        }
      }
    }
  }

  /// What the tiles leave bare would show whatever was in memory there.
  void checkTiles(const Item::Grid& grid, const std::vector<std::uint32_t>& tiles) const {
    const Item* first = nullptr;
    for (const std::uint32_t id : tiles) {
      const auto found = items_.find(id);
      if (found == items_.end()) refuse("made of what is no image");
      const Item& tile = found->second;
      if (!first) first = &tile;
      const bool isPlain = tile.codedPixels > 0 && !tile.isDerived && tile.transforms == 0;
      if (!isPlain || tile.width != first->width || tile.height != first->height) refuse("unequal tiles");
      if (tile.width * grid.columns < grid.width || tile.height * grid.rows < grid.height) {
        refuse("tiles too small for their grid");
      }
    }
  }

  /// What is decoded for one image. Images made of themselves end at the depth.
  Item::Work workFor(Item& item, int depth) {
    if (item.work) return *item.work;
    Item::Work work{item.isCoded ? std::max(item.codedPixels, minimumWork) : 0, 0};
    const auto add = [&](const std::vector<std::uint32_t>& others) {
      for (const std::uint32_t id : others) {
        const auto other = items_.find(id);
        if (other == items_.end()) refuse("made of what is no image");  // which libheif does not survive
        if (depth >= maximumDepth) refuse("images made of too many others");
        const Item::Work part = workFor(other->second, depth + 1);
        work.pixels += part.pixels;
        work.levels = std::max(work.levels, part.levels + 1);
        if (work.pixels > limits_.maximumWork) refuse("too much to decode");
      }
    };
    if (item.isDerived) add(item.parts);
    add(item.alphas);
    if (work.levels > maximumDepth) refuse("images made of too many others");
    item.work = work;
    return work;
  }

  std::string_view meta_;
  const ReadAt& readAt_;
  const Limits& limits_;
  std::set<std::uint32_t> known_;        ///< all items
  std::map<std::uint32_t, Item> items_;  ///< the images
  int units_ = 0;
};

}  // namespace

void checkLimits(std::string_view meta, const ReadAt& readAt, const Limits& limits) {
  Check(meta, readAt, limits).run();
}

}  // namespace tidewell::heif
