// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

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
  Kind kind;
  std::string_view start;
  std::size_t prefix;
};
constexpr Known known[] = {
    {0xE0, Kind::density, "JFIF\0"sv, 7},
    {0xE1, Kind::exif, "Exif\0"sv, 6},
    {0xE1, Kind::xmp, "http://ns.adobe.com/xap/1.0/\0"sv, 29},
    {0xE1, Kind::xmpExtension, "http://ns.adobe.com/xmp/extension/\0"sv, 35 + 32 + 8},  // name, size, offset
    {0xE1, Kind::other, "FLIR\0"sv, 5},
    {0xE2, Kind::other, "FPXR\0"sv, 5},
    {0xE2, Kind::profile, "ICC_PROFILE\0"sv, 14},
    {0xE2, Kind::pictureIndex, "MPF\0"sv, 4},
    {0xE3, Kind::other, "Meta\0"sv, 6},
    {0xE3, Kind::other, "META\0"sv, 6},
    {0xE6, Kind::other, "GoPro\0"sv, 6},
    {0xEC, Kind::other, "Ducky"sv, 5},
    {0xEC, Kind::other, "PictureInfo"sv, 11},
    {0xEC, Kind::other, "[picture info]"sv, 14},
    {0xED, Kind::photoshop, "Photoshop 3.0\0"sv, 14},
    {0xFE, Kind::comment, ""sv, 0},
};
constexpr std::size_t densityAt = 8, densityBytes = 5;  // of the marker and body: unit, across, down
constexpr auto squareDensity = "\0\0\1\0\1"sv;

bool isSPIFF(int marker, std::string_view body) {
  return marker == 0xE8 && body.starts_with("SPIFF\0"sv);
}

/// Of the colours of the samples, which are the candidate's.
bool saysHowToShow(int marker, std::string_view body) {
  return isSPIFF(marker, body) || (marker == JPEGSegments::app14 && body.starts_with("Adobe"));
}

const Known* knownAs(int marker, std::string_view body) {
  const auto* found = std::find_if(std::begin(known), std::end(known), [&](const Known& it) {
    return it.marker == marker && body.starts_with(it.start) && body.size() >= it.prefix;
  });
  return found == std::end(known) ? nullptr : found;
}

/// Nobody knows what an application says there, so it stays. Not so APP0, APP2, APP11, APP14 and SPIFF: they
/// may say how to show the old samples, belong to pictures behind the first, or sign the old bytes.
bool isCarriedUnknown(int marker, std::string_view body) {
  constexpr std::string_view applications = "\xE1\xE3\xE4\xE5\xE6\xE7\xE8\xE9\xEA\xEC\xED\xEF";
  return applications.find(static_cast<char>(marker)) != std::string_view::npos && !isSPIFF(marker, body);
}

std::string segment(std::string_view markerAndBody) {
  return JPEGSegments::bytes(static_cast<unsigned char>(markerAndBody[0]), markerAndBody.substr(1));
}

/// The five bytes of the first JFIF segment; a square without unit, when there is none.
std::string_view densityOf(const Pieces& pieces) {
  for (const Piece& piece : pieces.all) {
    if (piece.kind == Kind::density && piece.data().size() >= densityBytes) {
      return piece.data().substr(0, densityBytes);
    }
  }
  return squareDensity;
}

/// A candidate taken apart. A JFIF segment also says what the colours are, so that one is only added where it
/// says what goes without saying.
class Candidate {
 public:
  explicit Candidate(const std::string& bytes) {
    const ImageInput input(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    const auto pixels = JPEGSegments::walk(
        input.stream().get(), {}, [](int) { return true; },
        [&](int marker, const std::string& body) { add(marker, body); });
    if (!pixels) throw CompressionError::invalidImage();
    rest_ += bytes.substr(static_cast<std::size_t>(*pixels));
  }

  std::string with(std::string_view density, const std::string& carried) const {
    std::string first = header_;
    if (first.empty() && isPlain_ && density != squareDensity) first = plainHeader;
    if (!first.empty()) first.replace(densityAt, densityBytes, density);
    return "\xFF\xD8" + (first.empty() ? first : segment(first)) + carried + rest_;
  }

 private:
  void add(int marker, const std::string& body) {
    const Known* it = knownAs(marker, body);
    if (it != nullptr && it->kind == Kind::density) {
      if (header_.empty()) header_ = static_cast<char>(marker) + body;
    } else if (it == nullptr ? !isCarriedUnknown(marker, body) : it->kind >= Kind::profile) {
      rest_ += JPEGSegments::bytes(marker, body);
    }
    if (JPEGSegments::isFrame(marker)) {
      isPlain_ = isPlain_ && (isOf(body, "\1"sv) || isOf(body, "\1\2\3"sv));
    }
    if (marker == JPEGSegments::app14) isPlain_ = false;
  }

  /// The frame has components of these numbers, by which decoders take one for grey, three for YCbCr.
  static bool isOf(std::string_view frame, std::string_view numbers) {
    constexpr std::size_t head = 5, componentBytes = 3;  // behind the head their number
    if (frame.size() < head + 1 + componentBytes * numbers.size()) return false;
    bool same = frame[head] == static_cast<char>(numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      same = same && frame[head + 1 + componentBytes * i] == numbers[i];
    }
    return same;
  }

  static constexpr auto plainHeader = "\xE0JFIF\0\1\1\0\0\1\0\1\0\0"sv;  // version 1.1, no thumbnail
  std::string header_, rest_;
  bool isPlain_ = true;
};

}  // namespace

void readJPEG(const ImageInput& file, Pieces& pieces, const StopToken& stop) {
  const auto wanted = [](int marker) {
    return (marker >= JPEGSegments::app0 && marker <= JPEGSegments::app15) || marker == JPEGSegments::comment;
  };
  const auto end =
      JPEGSegments::walk(file.stream().get(), stop, wanted, [&](int marker, const std::string& body) {
        if (const Known* it = knownAs(marker, body)) {
          pieces.add({.kind = it->kind, .whole = static_cast<char>(marker) + body, .prefix = 1 + it->prefix});
        } else if (isCarriedUnknown(marker, body)) {
          pieces.add({.kind = Kind::other, .whole = static_cast<char>(marker) + body, .prefix = 1});
        } else if (!saysHowToShow(marker, body)) {
          pieces.unknownBytes += body.size();
        }
      });
  if (!end) throw CompressionError::invalidImage();
}

std::string jpegWith(const Pieces& pieces, const std::string& candidate) {
  std::string carried;
  for (const Piece& piece : pieces.all) {
    if (piece.isCarried() && piece.kind != Kind::density) carried += segment(piece.whole);
  }
  return Candidate(candidate).with(densityOf(pieces), carried);
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
