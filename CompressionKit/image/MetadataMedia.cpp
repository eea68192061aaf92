// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <cstdint>
#include <string>

#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/MetadataPieces.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell::metadata {
namespace {

constexpr std::string_view videoStart = "ftyp";  // type of the box that begins one, behind its size
constexpr std::string_view samsungName = "MotionPhoto_Data";  // before the video in a trailer
constexpr std::size_t boxHead = 12;                           // size, type, brand
constexpr std::size_t overlap = 16;                           // no shorter than any of these

/// Whether a box of the brand of a video is here, as no accident of compressed data looks.
bool beginsVideo(std::string_view data) {
  if (data.size() < boxHead) return false;
  heif::Bytes bytes(data);
  const auto size = bytes.u32();
  const bool isType = bytes.take(4) == videoStart;
  const auto brand = bytes.take(4);
  return isType && size >= 16 && size <= 1024 && size % 4 == 0 &&
         std::all_of(brand.begin(), brand.end(), [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
}

std::optional<std::size_t> videoIn(std::string_view data) {
  if (const auto at = data.find(samsungName); at != std::string_view::npos) return at;
  for (auto at = data.find(videoStart); at != std::string_view::npos; at = data.find(videoStart, at + 1)) {
    if (at >= 4 && beginsVideo(data.substr(at - 4))) return at - 4;
  }
  return std::nullopt;
}

/// Only of these kinds there are motion photos.
bool isJPEGOrHEIC(const ImageInput& file) {
  const std::string head = file.head(heif::headBytes);
  return looksLikeJPEG(head) || heif::container(head).has_value();
}

}  // namespace

std::uint64_t videoBytes(const ImageInput& file, const StopToken& stop) {
  if (!isJPEGOrHEIC(file)) return 0;
  constexpr std::size_t blockBytes = std::size_t{256} << 10;
  std::string block(blockBytes, '\0');
  const auto size = file.size();
  for (std::int64_t offset = 1;;
       offset += static_cast<std::int64_t>(blockBytes - overlap)) {  // 0 is a HEIC's own
    stop.throwIfStopped();
    const auto count = file.readAt(offset, block.data(), blockBytes);
    if (count <= 0) return 0;
    const auto found = videoIn(std::string_view(block).substr(0, static_cast<std::size_t>(count)));
    if (found) return static_cast<std::uint64_t>(size - offset) - *found;
    if (static_cast<std::size_t>(count) < blockBytes) return 0;
  }
}

bool embedsMedia(const URL& file, const StopToken& stop) {
  try {
    const ImageInput input(file);
    if (videoBytes(input, stop) > 0) return true;
    const auto pieces = readablePieces(input, stop).all;
    return isJPEGOrHEIC(input) && std::any_of(pieces.begin(), pieces.end(), [](const Piece& piece) {
             return piece.kind == Piece::Kind::xmp && namesVideo(piece.data());
           });
  } catch (const FileError&) {
    return false;
  }
}

}  // namespace tidewell::metadata
