#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/JPEGSegments.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using Kind = Piece::Kind;
using namespace std::string_view_literals;

/// How a segment begins that is known, and how many bytes of its body come before the data.
struct Known {
  int marker;
  std::string_view start;
  Kind kind;
  std::size_t prefix;
};
constexpr Known known[] = {
    {0xE0, "JFIF\0"sv, Kind::density, 7},
    {0xE1, "Exif\0"sv, Kind::exif, 6},
    {0xE1, "http://ns.adobe.com/xap/1.0/\0"sv, Kind::xmp, 29},
    {0xE1, "http://ns.adobe.com/xmp/extension/\0"sv, Kind::xmpExtension, 35 + 32 + 8},  // name, size, offset
    {0xE1, "FLIR\0"sv, Kind::other, 5},
    {0xE2, "FPXR\0"sv, Kind::other, 5},
    {0xE2, "ICC_PROFILE\0"sv, Kind::profile, 14},
    {0xE2, "MPF\0"sv, Kind::pictureIndex, 4},
    {0xE3, "Meta\0"sv, Kind::other, 6},
    {0xE3, "META\0"sv, Kind::other, 6},
    {0xE6, "GoPro\0"sv, Kind::other, 6},
    {0xEC, "Ducky"sv, Kind::other, 5},
    {0xEC, "PictureInfo"sv, Kind::other, 11},
    {0xEC, "[picture info]"sv, Kind::other, 14},
    {0xED, "Photoshop 3.0\0"sv, Kind::photoshop, 14},
    {0xFE, ""sv, Kind::comment, 0},
};
constexpr std::size_t densityBytes = 5;  // unit, across, down

const Known* knownAs(int marker, std::string_view body) {
  const auto* found = std::find_if(std::begin(known), std::end(known), [&](const Known& it) {
    return it.marker == marker && body.starts_with(it.start) && body.size() >= it.prefix;
  });
  return found == std::end(known) ? nullptr : found;
}

std::string segment(std::string_view markerAndBody) {
  const std::size_t length = markerAndBody.size() + 1;  // with its own two bytes, without the marker
  std::string bytes = "\xFF";
  bytes += markerAndBody[0];
  bytes += static_cast<char>(length >> 8);
  bytes += static_cast<char>(length & 0xFF);
  bytes += markerAndBody.substr(1);
  return bytes;
}

const Piece* densityOf(const Pieces& pieces) {
  const auto found = std::find_if(pieces.all.begin(), pieces.all.end(),
                                  [](const Piece& piece) { return piece.kind == Kind::density; });
  return found == pieces.all.end() ? nullptr : &*found;
}

}  // namespace

void readJPEG(const ImageInput& file, Pieces& pieces, const StopToken& stop) {
  const auto wanted = [](int marker) {
    return std::any_of(std::begin(known), std::end(known),
                       [&](const Known& it) { return it.marker == marker; });
  };
  const auto end =
      JPEGSegments::walk(file.stream().get(), stop, wanted, [&](int marker, const std::string& body) {
        if (const Known* it = knownAs(marker, body)) {
          pieces.add({.kind = it->kind, .whole = static_cast<char>(marker) + body, .prefix = 1 + it->prefix});
        }
      });
  if (!end) throw CompressionError::invalidImage();
}

std::string jpegWith(const Pieces& pieces, const std::string& candidate) {
  const ImageInput input(
      std::span(reinterpret_cast<const std::uint8_t*>(candidate.data()), candidate.size()));
  const Piece* density = densityOf(pieces);
  std::string first, rest;
  const auto all = [](int) { return true; };
  const auto pixels = JPEGSegments::walk(input.stream().get(), {}, all, [&](int marker, std::string& body) {
    const Known* it = knownAs(marker, body);
    const bool isDensity = it != nullptr && it->kind == Kind::density;
    if (it != nullptr && it->kind < Kind::profile && !isDensity) return;
    // A candidate's JFIF also says what its colours are, so it stays, and none is added.
    if (isDensity && density != nullptr) {
      body.replace(it->prefix, densityBytes, density->data().substr(0, densityBytes));
    }
    (isDensity ? first : rest) += segment(static_cast<char>(marker) + body);
  });
  if (!pixels) throw CompressionError::invalidImage();
  std::string output = "\xFF\xD8" + first;
  for (const Piece& piece : pieces.all) {
    if (piece.isCarried() && piece.kind != Kind::density) output += segment(piece.whole);
  }
  return output + rest + candidate.substr(static_cast<std::size_t>(*pixels));
}

void dropReferences(Pieces& jpeg) {
  std::string extension;  // which is cut anywhere
  for (const Piece& piece : jpeg.all) {
    if (piece.kind == Kind::xmpExtension) extension += piece.data();
  }
  const bool dropsExtension = namesWhatLiesBehind(extension);
  std::erase_if(jpeg.all, [&](Piece& piece) {
    if (piece.kind == Kind::xmpExtension) return dropsExtension;
    if (piece.kind != Kind::xmp) return false;
    const auto kept = xmpWithout({.extension = dropsExtension}, piece.data());
    if (kept) piece.whole.replace(piece.prefix, std::string::npos, *kept);
    return !kept;
  });
}

}  // namespace tidewell::metadata
