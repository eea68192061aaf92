// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <cstdint>
#include <string>

#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/codecs/JPEGSegments.h"
#include "CompressionKit/codecs/TIFFDirectories.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/MetadataPieces.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell::metadata {
namespace {

constexpr std::string_view videoStart = "ftyp";  // type of the box that begins one, behind its size
constexpr std::string_view samsungName = "MotionPhoto_Data";  // before the video in a trailer
constexpr std::size_t boxHead = 12;                           // size, type, brand
constexpr std::size_t overlap = 16;                           // no shorter than any of these
constexpr std::size_t blockBytes = std::size_t{256} << 10;
/// Up to this are trifles that cameras leave behind, and no reason to pass a file over.
constexpr std::uint64_t trifle = 1024;

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

/// Finds where a JPEG ends from its bytes, in whatever parts they come. Entropy-coded data need no care of
/// their own: 0xFF is followed by 0 or a restart in them, which neither begins a segment nor ends anything.
class JPEGEnd {
 public:
  /// How many of the bytes belong to the picture.
  std::size_t take(std::string_view data) {
    std::size_t at = 0;
    while (at < data.size() && state_ != State::ended) {
      if (state_ == State::data) {
        at = std::min(data.find('\xFF', at), data.size());
        if (at < data.size()) state_ = State::marker;
      } else if (state_ == State::body) {
        const auto step = std::min(left_, data.size() - at);
        left_ -= step;
        at += step;
        if (left_ == 0) state_ = State::data;
        continue;
      } else {
        step(static_cast<unsigned char>(data[at]));
      }
      ++at;
    }
    return std::min(at, data.size());
  }
  bool isFound() const { return state_ == State::ended; }

 private:
  enum class State { data, marker, high, low, body, ended };

  void step(unsigned byte) {
    if (state_ == State::marker) {
      const auto marker = static_cast<int>(byte);
      if (marker == JPEGSegments::endOfImage) {
        state_ = State::ended;
      } else if (marker != 0xFF) {
        state_ = marker == 0 || JPEGSegments::isStandalone(marker) ? State::data : State::high;
      }
    } else if (state_ == State::high) {
      left_ = byte << 8;
      state_ = State::low;
    } else {
      left_ += byte;
      left_ -= std::min<std::size_t>(left_, 2);  // its own
      state_ = left_ == 0 ? State::data : State::body;
    }
  }

  State state_ = State::data;
  std::size_t left_ = 0;  ///< of a segment
};

/// From `end` to the end of the file; 0 where all of that is zero.
std::uint64_t filledBytes(const ImageInput& file, std::int64_t end, const StopToken& stop) {
  std::string block(blockBytes, '\0');
  for (auto offset = end;;) {
    stop.throwIfStopped();
    const auto count = file.readAt(offset, block.data(), blockBytes);
    if (count <= 0) return 0;
    const auto data = std::string_view(block).substr(0, static_cast<std::size_t>(count));
    if (data.find_first_not_of('\0') != std::string_view::npos) {
      return static_cast<std::uint64_t>(file.size() - end);
    }
    offset += count;
  }
}

/// An index that has pictures in their own right: of a panorama, of another eye or angle. Others lead to
/// smaller copies, or to what only makes the first brighter or deeper.
bool namesMultipleFrames(std::string_view tiff) {
  constexpr std::uint32_t picturesTag = 0xB002;
  constexpr std::size_t entryBytes = 16;
  constexpr char multipleFrames = 2;  // the upper byte of a type of 24 bits
  const TIFFDirectories index(tiff);
  const auto pictures = index.isSound() ? index.entry(index.first(), picturesTag) : std::nullopt;
  if (!pictures) return false;
  std::size_t at = index.place(*pictures);
  for (auto left = pictures->count / entryBytes; left > 0; --left, at += entryBytes) {
    const auto entry = index.bytes(at, entryBytes);
    if (entry.size() < entryBytes) return false;
    if (entry[index.isLittleEndian() ? 2 : 1] == multipleFrames) return true;
  }
  return false;
}

/// Only of these kinds there are motion photos.
bool isJPEGOrHEIC(std::string_view head) {
  return looksLikeJPEG(head) || heif::container(head).has_value();
}

template <typename Question>
bool any(const Pieces& pieces, Piece::Kind kind, Question question) {
  return std::any_of(pieces.all.begin(), pieces.all.end(),
                     [&](const Piece& piece) { return piece.kind == kind && question(piece.data()); });
}

}  // namespace

Behind whatLiesBehind(const ImageInput& file, const Pieces& pieces, const StopToken& stop) {
  const std::string head = file.head(heif::headBytes);
  if (!isJPEGOrHEIC(head)) return {.bytes = pieces.end ? filledBytes(file, *pieces.end, stop) : 0};

  const bool isJPEG = looksLikeJPEG(head);
  const auto size = file.size();
  Behind behind;
  JPEGEnd jpeg;
  std::string block(blockBytes, '\0');
  std::size_t known = 0;             // bytes of the block that the last one had, too
  for (std::int64_t offset = 1;;) {  // 0 is a HEIC's own
    stop.throwIfStopped();
    const auto count = file.readAt(offset, block.data(), blockBytes);
    if (count <= 0) break;
    const auto data = std::string_view(block).substr(0, static_cast<std::size_t>(count));
    if (isJPEG && !jpeg.isFound()) {
      const auto taken = jpeg.take(data.substr(std::min(known, data.size())));
      if (jpeg.isFound()) {
        behind.bytes = filledBytes(file, offset + static_cast<std::int64_t>(known + taken), stop);
      }
    }
    if (const auto found = videoIn(data)) {
      behind.video = static_cast<std::uint64_t>(size - offset) - *found;
      break;
    }
    if (data.size() < blockBytes) break;
    offset += static_cast<std::int64_t>(blockBytes - overlap);
    known = overlap;
  }
  return behind;
}

bool embedsMedia(const URL& file, const StopToken& stop) {
  try {
    const ImageInput input(file);
    const Pieces pieces = readablePieces(input, stop);
    if (pieces.isCut || pieces.unsafeBytes > trifle) return true;
    if (isJPEGOrHEIC(input.head(heif::headBytes)) && any(pieces, Piece::Kind::xmp, namesVideo)) return true;
    const Behind behind = whatLiesBehind(input, pieces, stop);
    if (behind.video > 0) return true;
    const bool isAnnounced = any(pieces, Piece::Kind::pictureIndex, [](std::string_view) { return true; });
    return behind.bytes > trifle &&
           (!isAnnounced || any(pieces, Piece::Kind::pictureIndex, namesMultipleFrames));
  } catch (const FileError&) {
    return false;
  }
}

}  // namespace tidewell::metadata
