// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/PNGBytes.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using Kind = Piece::Kind;
using namespace std::string_view_literals;

constexpr std::size_t chunkHead = 8, chunkSum = 4;
constexpr auto xmpStart = "XML:com.adobe.xmp\0\0\0\0\0"sv;  // not compressed, of no language

/// Chunks that say how to show the pixels, or where those lie in the file (iDOT): the candidate's are right.
constexpr std::string_view ofPixels[] = {"tRNS", "cHRM", "gAMA", "sBIT", "sRGB", "cICP",
                                         "mDCV", "mDCv", "cLLI", "cLLi", "bKGD", "hIST",
                                         "sPLT", "acTL", "fcTL", "fdAT", "iDOT"};
/// Not to be copied beside other pixels, and no loss to speak of; caBX is signed over the old bytes.
constexpr std::string_view dispensable[] = {"pCAL", "sCAL", "sTER", "dSIG", "caBX"};

template <std::size_t count>
bool isOneOf(const std::string_view (&types)[count], std::string_view type) {
  return std::find(std::begin(types), std::end(types), type) != std::end(types);
}

/// A small letter says yes: the first that decoders need not know the chunk, the last that whoever does not
/// know it may copy it beside pixels that changed.
bool isAncillary(std::string_view type) {
  return (type[0] & 0x20) != 0;
}
bool isSafeToCopy(std::string_view type) {
  return (type[3] & 0x20) != 0;
}

/// Of what is held; nothing of all else.
std::optional<Kind> kindOf(std::string_view type) {
  if (type == "eXIf") return Kind::exif;
  if (type == "tEXt" || type == "zTXt" || type == "iTXt") return Kind::text;
  if (type == "pHYs") return Kind::density;
  if (type == "tIME") return Kind::date;
  if (type == "iCCP") return Kind::profile;
  if (isAncillary(type) && isSafeToCopy(type) && !isOneOf(ofPixels, type)) return Kind::other;
  return std::nullopt;
}

/// `visit` is told the type of each chunk, and by `offset` and `whole` where it lies. Returns where IEND
/// ends.
template <typename Visit>
std::uint64_t forEachChunk(const ImageInput& file, const StopToken& stop, Visit visit) {
  const auto size = static_cast<std::uint64_t>(file.size());
  std::array<char, chunkHead> head{};
  for (std::uint64_t offset = pngSignature.size();;) {
    stop.throwIfStopped();
    const bool isThere =
        size >= offset + pngChunkOverhead &&
        file.readAt(static_cast<std::int64_t>(offset), head.data(), head.size()) == chunkHead;
    const std::string_view bytes(head.data(), head.size());
    const std::uint64_t whole = pngChunkOverhead + (isThere ? bigEndian32(bytes, 0) : 0);
    if (!isThere || whole > size - offset) throw CompressionError::invalidImage();
    const std::string_view type = bytes.substr(4);
    visit(type, offset, static_cast<std::size_t>(whole));
    offset += whole;
    if (type == "IEND") return offset;
  }
}

std::string chunk(std::string_view type, std::string_view data) {
  const auto appendNumber = [](std::string& text, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) text.push_back(static_cast<char>(value >> shift & 0xFF));
  };
  std::string bytes;
  appendNumber(bytes, static_cast<std::uint32_t>(data.size()));
  bytes.append(type).append(data);
  const auto sum =
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()) + 4, static_cast<uInt>(data.size() + 4));
  appendNumber(bytes, static_cast<std::uint32_t>(sum));
  return bytes;
}

}  // namespace

void readPNG(const ImageInput& file, Pieces& pieces, const StopToken& stop) {
  bool afterPixels = false;
  const auto visit = [&](std::string_view type, std::uint64_t offset, std::size_t whole) {
    if (type == "IDAT") afterPixels = true;
    const auto kind = kindOf(type);
    if (!kind && isAncillary(type) && !isOneOf(ofPixels, type)) {
      pieces.unknownBytes += whole - pngChunkOverhead;
      if (!isOneOf(dispensable, type)) pieces.unsafeBytes += whole - pngChunkOverhead;
    }
    if (!kind) return;
    if (whole > maximumBytes) throw CompressionError::validationFailed();
    std::string bytes(whole, '\0');
    if (file.readAt(static_cast<std::int64_t>(offset), bytes.data(), whole) != static_cast<ssize_t>(whole)) {
      throw CompressionError::invalidImage();
    }
    const bool isXMP =
        type == "iTXt" && std::string_view(bytes).substr(chunkHead).starts_with("XML:com.adobe.xmp");
    pieces.add({.kind = isXMP ? Kind::xmp : *kind,
                .whole = std::move(bytes),
                .prefix = chunkHead,
                .suffix = chunkSum,
                .afterPixels = afterPixels});
  };
  pieces.end = static_cast<std::int64_t>(forEachChunk(file, stop, visit));
}

std::string pngWith(const Pieces& pieces, const std::string& candidate) {
  const auto carried = [&](bool afterPixels) {
    std::string bytes;
    for (const Piece& piece : pieces.all) {
      if (piece.isCarried() && piece.afterPixels == afterPixels) bytes += piece.whole;
    }
    return bytes;
  };
  std::string output(pngSignature);
  const ImageInput input(
      std::span(reinterpret_cast<const std::uint8_t*>(candidate.data()), candidate.size()));
  forEachChunk(input, {}, [&](std::string_view type, std::uint64_t offset, std::size_t whole) {
    if (const auto kind = kindOf(type); kind && *kind < Kind::profile) return;
    if (type == "IEND") output += carried(true);
    output.append(candidate, offset, whole);
    if (type == "IHDR") output += carried(false);
  });
  return output;
}

std::string pngWithout(const std::string& file) {
  // How long its data may be: decoders leave out what is longer, whatever it holds.
  constexpr std::size_t any = SIZE_MAX;
  constexpr std::pair<std::string_view, std::size_t> known[] = {
      {"IHDR", 13}, {"PLTE", 768}, {"IDAT", any}, {"IEND", 0}, {"tRNS", 256}, {"gAMA", 4},
      {"cHRM", 32}, {"sRGB", 1},   {"iCCP", any}, {"sBIT", 4}, {"bKGD", 6},   {"cICP", 4},
      {"mDCV", 24}, {"mDCv", 24},  {"cLLI", 8},   {"cLLi", 8}};
  std::string output(pngSignature);
  const ImageInput input(std::span(reinterpret_cast<const std::uint8_t*>(file.data()), file.size()));
  forEachChunk(input, {}, [&](std::string_view type, std::uint64_t offset, std::size_t whole) {
    const bool isKept = std::any_of(std::begin(known), std::end(known), [&](const auto& chunk) {
      return chunk.first == type && (chunk.second == any || whole - pngChunkOverhead <= chunk.second);
    });
    const bool isCritical = type[0] >= 'A' && type[0] <= 'Z';
    if (isKept) {
      output.append(file, offset, whole);
    } else if (type == "IEND") {
      output += chunk(type, "");
    } else if (isCritical) {
      throw CompressionError::invalidImage();
    }
  });
  return output;
}

Pieces asUprightPNG(const Pieces& heic) {
  Pieces png;
  for (const Piece& piece : heic.all) {
    if (piece.kind == Kind::exif) {
      const auto exif = uprightExif(piece.data());
      if (exif)
        png.add({.kind = piece.kind, .whole = chunk("eXIf", *exif), .prefix = chunkHead, .suffix = chunkSum});
    } else if (piece.kind == Kind::xmp) {
      const auto packet = xmpWithout({.orientation = true}, piece.data());
      if (packet) {
        png.add({.kind = piece.kind,
                 .whole = chunk("iTXt", std::string(xmpStart) + *packet),
                 .prefix = chunkHead,
                 .suffix = chunkSum});
      }
    }
  }
  return png;
}

}  // namespace tidewell::metadata
