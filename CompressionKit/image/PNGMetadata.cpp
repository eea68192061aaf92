// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/PNGMetadata.h"

#include <zlib.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageInput.h"
#include "CompressionKit/codecs/PNGBytes.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/OrientationExif.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// Up to eight bytes at `offset`.
std::string eightBytesAt(const ImageInput& file, std::uint64_t offset, const URL& url) {
  std::string bytes(8, '\0');
  const ssize_t count = file.readAt(static_cast<std::int64_t>(offset), bytes.data(), bytes.size());
  if (count < 0) throw FileError("读取", url.path(), errno);
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

void appendBigEndian32(std::string& text, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) text.push_back(static_cast<char>(value >> shift & 0xFF));
}

std::string orientationChunk(int orientation) {
  const std::string typed = "eXIf" + orientationExif(orientation);
  std::string chunk;
  appendBigEndian32(chunk, static_cast<std::uint32_t>(typed.size() - 4));
  chunk += typed;
  appendBigEndian32(chunk, static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(typed.data()),
                                                            static_cast<uInt>(typed.size()))));
  return chunk;
}

}  // namespace

void PNGMetadata::validateStatic(const URL& url, const StopToken& stop) {
  const ImageInput file(url);
  const auto size = static_cast<std::uint64_t>(file.size());
  if (eightBytesAt(file, 0, url) != pngSignature) throw CompressionError::invalidImage();
  bool hasImageData = false;
  for (std::uint64_t offset = pngSignature.size();;) {
    stop.throwIfStopped();
    if (size < offset + pngChunkOverhead) throw CompressionError::invalidImage();
    const std::string header = eightBytesAt(file, offset, url);
    if (header.size() < 8) throw CompressionError::invalidImage();
    const std::uint32_t length = bigEndian32(header, 0);
    const std::string_view type = std::string_view(header).substr(4);
    if (size - offset - pngChunkOverhead < length) throw CompressionError::invalidImage();
    if (offset == pngSignature.size() && (type != "IHDR" || length != 13))
      throw CompressionError::invalidImage();
    if (type == "acTL" || type == "fcTL" || type == "fdAT") {
      throw CompressionError::fileOperation("暂不支持动态 PNG（APNG），已保留原图");
    }
    if (type == "IDAT") hasImageData = true;
    if (type == "IEND") {
      if (length != 0 || !hasImageData) throw CompressionError::invalidImage();
      return;
    }
    offset += length + pngChunkOverhead;
  }
}

void PNGMetadata::preserveOrientation(int orientation, const URL& url, const StopToken& stop) {
  if (orientation < 1 || orientation > 8) throw CompressionError::validationFailed();
  if (orientation == 1) return;
  if (ImageFacts::inspect(url, stop).orientation == orientation) return;

  const std::string data = files::read(url);
  std::string output = data.substr(0, pngSignature.size());
  for (std::size_t offset = pngSignature.size();;) {
    if (data.size() < offset + pngChunkOverhead) throw CompressionError::invalidImage();
    const std::size_t length = bigEndian32(data, offset);
    if (data.size() - offset - pngChunkOverhead < length) throw CompressionError::invalidImage();
    const auto type = std::string_view(data).substr(offset + 4, 4);
    const std::size_t whole = length + pngChunkOverhead;
    if (type != "eXIf") output.append(data, offset, whole);
    if (type == "IHDR") output += orientationChunk(orientation);
    if (type == "IEND") break;
    offset += whole;
  }
  // A candidate in a private folder: it is flushed when it takes the original's place.
  files::writeAtomically(url, output, files::Durability::cached);
}

}  // namespace tidewell
