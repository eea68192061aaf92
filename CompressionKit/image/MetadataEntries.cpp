// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <array>
#include <string_view>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/TIFFDirectories.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using Kind = Piece::Kind;
using namespace std::string_view_literals;

constexpr std::string_view otherData = "other data";
constexpr std::string_view names[] = {
    "date",    "place", "camera",     "author",    "copyright", "description",      "Exif",  "XMP",    "IPTC",
    "comment", "text",  "resolution", "thumbnail", "profile",   "further pictures", "video", otherData};

class Sums {
 public:
  void add(std::string_view name, std::uint64_t bytes) {
    const auto at = std::find(std::begin(names), std::end(names), name) - std::begin(names);
    sums_[static_cast<std::size_t>(at)] += bytes;
  }
  std::vector<Entry> entries() const {
    std::vector<Entry> result;
    for (std::size_t i = 0; i < sums_.size(); ++i) {
      if (sums_[i] > 0) result.push_back({std::string(names[i]), sums_[i]});
    }
    return result;
  }

 private:
  std::array<std::uint64_t, std::size(names)> sums_{};
};

struct Tag {
  std::uint32_t number;
  std::string_view name;
};
constexpr std::uint32_t exifDirectoryTag = 0x8769, placeDirectoryTag = 0x8825, thumbnailBytesTag = 0x0202;
constexpr Tag tags[] = {
    {0x010E, "description"}, {0x010F, "camera"}, {0x0110, "camera"},      {0x011A, "resolution"},
    {0x011B, "resolution"},  {0x0132, "date"},   {0x013B, "author"},      {0x8298, "copyright"},
    {0x9003, "date"},        {0x9004, "date"},   {0x9286, "description"}, {0x9C9D, "author"},
    {0x9C9B, "description"}, {0xA430, "author"}, {0xA434, "camera"},
};

void addDirectory(const TIFFDirectories& exif, TIFFDirectories::Directory directory, Sums& sums) {
  exif.forEachEntry(directory, [&](const TIFFDirectories::Entry& entry) {
    const auto* tag =
        std::find_if(std::begin(tags), std::end(tags), [&](const Tag& it) { return it.number == entry.tag; });
    if (tag != std::end(tags)) sums.add(tag->name, entry.bytes());
  });
}

void addExif(std::string_view tiff, Sums& sums) {
  sums.add("Exif", tiff.size());
  const TIFFDirectories exif(tiff);
  if (!exif.isSound()) return;
  addDirectory(exif, exif.first(), sums);
  addDirectory(exif, exif.integer(exif.first(), exifDirectoryTag), sums);
  exif.forEachEntry(exif.integer(exif.first(), placeDirectoryTag), [&](const TIFFDirectories::Entry& entry) {
    if (entry.tag != 0) sums.add("place", entry.bytes());  // 0 is the version
  });
  sums.add("thumbnail", exif.integer(exif.after(exif.first()), thumbnailBytesTag).value_or(0));
}

/// Photoshop's resources: "8BIM", number, a name and the data, each of the two filled up to an even length.
void addPhotoshop(std::string_view resources, Sums& sums) {
  constexpr std::uint32_t iptc = 0x0404;
  heif::Bytes bytes(resources);
  while (!bytes.atEnd() && bytes.take(4) == "8BIM") {
    const auto number = bytes.u16();
    const auto nameBytes = bytes.u8();
    bytes.take(nameBytes | 1U);
    const auto length = bytes.u32();
    if (number == iptc && length <= bytes.remaining()) sums.add("IPTC", length);
    bytes.take(length);
    if (length % 2 != 0) bytes.take(1);
  }
}

/// What programs keep in texts of a PNG under known keywords.
std::string_view nameOfText(std::string_view text) {
  const std::string_view keyword = text.substr(0, text.find('\0'));
  const auto isOneOf = [&](auto... words) { return ((keyword == words) || ...); };
  if (isOneOf("Raw profile type exif"sv, "Raw profile type APP1"sv)) return "Exif";
  if (isOneOf("Raw profile type xmp"sv)) return "XMP";
  if (isOneOf("Raw profile type iptc"sv)) return "IPTC";
  if (isOneOf("Creation Time"sv, "date:create"sv, "date:modify"sv)) return "date";
  if (isOneOf("Author"sv)) return "author";
  if (isOneOf("Copyright"sv)) return "copyright";
  if (isOneOf("Description"sv, "Title"sv)) return "description";
  if (isOneOf("Comment"sv)) return "comment";
  return "text";
}

/// A JFIF segment without a unit: a ratio, 1 to 1 for most.
bool isRatioOnly(const Piece& density) {
  return density.whole.starts_with('\xE0') && density.data().starts_with('\0');
}

void addPiece(const Piece& piece, Sums& sums) {
  const auto data = piece.data();
  switch (piece.kind) {
    case Kind::exif:
      return addExif(data, sums);
    case Kind::xmp:
    case Kind::xmpExtension:
      return sums.add("XMP", data.size());
    case Kind::photoshop:
      return addPhotoshop(data, sums);
    case Kind::comment:
      return sums.add("comment", data.size());
    case Kind::text:
      return sums.add(nameOfText(data), data.size());
    case Kind::density:
      if (!isRatioOnly(piece)) sums.add("resolution", data.size());
      return;
    case Kind::date:
      return sums.add("date", data.size());
    case Kind::profile:
      return sums.add("profile", data.size());
    case Kind::pictureIndex:
      return sums.add("further pictures", data.size());
    case Kind::other:
      return sums.add(otherData, data.size());
  }
}

}  // namespace

std::vector<Entry> entries(const URL& file, const StopToken& stop) {
  Sums sums;
  const ImageInput input(file);
  const Pieces pieces = readablePieces(input, stop);
  bool hasIndex = false;
  for (const Piece& piece : pieces.all) {
    addPiece(piece, sums);
    hasIndex = hasIndex || piece.kind == Kind::pictureIndex;
  }
  const Behind behind = whatLiesBehind(input, pieces, stop);
  sums.add("video", behind.video);
  // What an index announces lies there.
  sums.add(hasIndex ? "further pictures" : otherData, behind.bytes - std::min(behind.bytes, behind.video));
  sums.add(otherData, pieces.unknownBytes);
  return sums.entries();
}

std::vector<std::string> gone(const std::vector<Entry>& before, const std::vector<Entry>& after) {
  std::vector<std::string> result;
  for (const Entry& entry : before) {
    // Much of different kinds has this one name, and what stays of it stays byte for byte.
    const std::uint64_t least = entry.name == otherData ? entry.bytes : 1;
    const auto isIt = [&](const Entry& other) { return other.name == entry.name && other.bytes >= least; };
    if (std::none_of(after.begin(), after.end(), isIt)) result.push_back(entry.name);
  }
  return result;
}

}  // namespace tidewell::metadata
