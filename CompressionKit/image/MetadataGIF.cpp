// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using Kind = Piece::Kind;

constexpr int extension = 0x21, image = 0x2C, trailer = 0x3B;  // what a block begins with
constexpr int plainText = 0x01, graphicControl = 0xF9, comment = 0xFE, application = 0xFF;  // labels

int byteOf(std::FILE* file) {
  const int byte = std::getc(file);
  if (byte < 0) throw CompressionError::invalidImage();
  return byte;
}

void skip(std::FILE* file, long bytes) {
  if (std::fseek(file, bytes, SEEK_CUR) != 0) throw CompressionError::invalidImage();
}

void skipColors(std::FILE* file, int flags) {
  if ((flags & 0x80) != 0) skip(file, 3L << ((flags & 7) + 1));
}

void skipSubBlocks(std::FILE* file) {
  std::string data(255, '\0');  // reading costs less than to seek
  while (const auto length = static_cast<std::size_t>(byteOf(file))) {
    if (std::fread(data.data(), 1, length, file) != length) throw CompressionError::invalidImage();
  }
}

/// A block from its first byte to its end. `label` is an extension's, 0 for others; `name` an application's.
struct Block {
  int label = 0;
  std::string name;
  long start = 0, end = 0;

  /// It belongs to a frame, or is one.
  bool isOfFrame() const { return label == 0 || label == plainText || label == graphicControl; }
  bool isComment() const { return label == comment; }
  bool isXMP() const { return name == "XMP DataXMP"; }
  bool isLoop() const { return name == "NETSCAPE2.0" || name == "ANIMEXTS1.0"; }
  bool isProfile() const { return name == "ICCRGBG1012"; }
  bool isFrame(const std::string& file) const {
    return file[static_cast<std::size_t>(start)] == static_cast<char>(image);
  }
  /// A frame with what belongs to it, and no more than that.
  bool isPicture(const std::string& file) const {
    constexpr long controlBytes = 8;
    return label == graphicControl ? end - start == controlBytes : isFrame(file);
  }
  /// How often it is shown, and no more than that.
  bool isPlainLoop(const std::string& file) const {
    constexpr long headBytes = 14, wholeBytes = headBytes + 5;  // one sub-block of three, and the end
    return isLoop() && end - start == wholeBytes &&
           file.compare(static_cast<std::size_t>(start + headBytes), 2, "\3\1") == 0;
  }
};

/// All blocks before the trailer. Returns where that ends.
template <typename Visit>
long forEachBlock(std::FILE* file, const StopToken& stop, Visit visit) {
  std::rewind(file);
  skip(file, 10);
  const int flags = byteOf(file);
  skip(file, 2);
  skipColors(file, flags);
  for (;;) {
    stop.throwIfStopped();
    Block block;
    block.start = std::ftell(file);
    const int kind = byteOf(file);
    if (kind == trailer) return block.start + 1;
    if (kind == image) {
      skip(file, 8);
      skipColors(file, byteOf(file));
      skip(file, 1);
    } else if (kind == extension) {
      block.label = byteOf(file);
      if (block.label == application) {
        block.name.resize(static_cast<std::size_t>(byteOf(file)));
        if (std::fread(block.name.data(), 1, block.name.size(), file) != block.name.size()) {
          throw CompressionError::invalidImage();
        }
      }
    } else {
      throw CompressionError::invalidImage();
    }
    skipSubBlocks(file);
    block.end = std::ftell(file);
    visit(block);
  }
}

}  // namespace

void readGIF(const ImageInput& file, Pieces& pieces, const StopToken& stop) {
  const auto stream = file.stream();
  pieces.end = forEachBlock(stream.get(), stop, [&](const Block& block) {
    const auto size = static_cast<std::size_t>(block.end - block.start);
    if (!block.isComment() && !block.isXMP() && !block.isProfile()) {
      if (!block.isOfFrame() && !block.isLoop()) pieces.unknownBytes += size;
      return;
    }
    if (size > maximumBytes) throw CompressionError::validationFailed();
    Piece piece{.kind = block.isProfile() ? Kind::profile
                        : block.isXMP()   ? Kind::xmp
                                          : Kind::comment,
                .whole = std::string(size, '\0'),
                .prefix = block.isComment() ? 2U : 14U};
    if (file.readAt(block.start, piece.whole.data(), piece.whole.size()) != block.end - block.start) {
      throw CompressionError::invalidImage();
    }
    pieces.add(std::move(piece));
  });
}

std::string gifWith(const Pieces& pieces, const std::string& candidate) {
  const ImageInput input(
      std::span(reinterpret_cast<const std::uint8_t*>(candidate.data()), candidate.size()));
  std::string carried, output;
  for (const Piece& piece : pieces.all) {
    if (piece.isCarried()) carried += piece.whole;
  }
  std::size_t done = 0, place = 0;
  const auto stream = input.stream();
  forEachBlock(stream.get(), {}, [&](const Block& block) {
    if (block.isOfFrame() && place == 0) {
      output.append(candidate, done, static_cast<std::size_t>(block.start) - done);
      done = static_cast<std::size_t>(block.start);
      place = output.size();
    }
    if (!block.isComment() && !block.isXMP()) return;
    output.append(candidate, done, static_cast<std::size_t>(block.start) - done);
    done = static_cast<std::size_t>(block.end);
  });
  if (place == 0) throw CompressionError::invalidImage();
  output.append(candidate, done);
  output.insert(place, carried);
  if (!carried.empty()) output[4] = '9';  // of "87a", which knows no extensions
  return output;
}

std::string gifWithout(const std::string& file) {
  const ImageInput input(std::span(reinterpret_cast<const std::uint8_t*>(file.data()), file.size()));
  const auto stream = input.stream();
  std::string output;
  std::size_t done = 0;  // until the first block there are size and colours
  long end = 0;
  bool hasFrame = false;
  forEachBlock(stream.get(), {}, [&](const Block& block) {
    end = block.end;
    hasFrame = hasFrame || block.isFrame(file);
    if (block.isPicture(file) || block.isProfile() || block.isPlainLoop(file)) return;
    output.append(file, done, static_cast<std::size_t>(block.start) - done);
    done = static_cast<std::size_t>(block.end);
  });
  if (!hasFrame) throw CompressionError::invalidImage();
  output.append(file, done, static_cast<std::size_t>(end) - done);
  return output + static_cast<char>(trailer);
}

}  // namespace tidewell::metadata
