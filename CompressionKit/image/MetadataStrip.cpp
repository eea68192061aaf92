// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/JPEGSegments.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t lengthBytes = 2;

/// Frames, tables and restart intervals: what decoders of pixels know.
bool isOfPixels(int marker) {
  constexpr int huffmanTables = 0xC4, arithmeticTables = 0xCC, quantisationTables = 0xDB, restarts = 0xDD;
  return JPEGSegments::isFrame(marker) || marker == huffmanTables || marker == arithmeticTables ||
         marker == quantisationTables || marker == restarts;
}

/// Writes a JPEG anew, marker by marker, up to its end.
class JPEGWithout {
 public:
  explicit JPEGWithout(std::string_view data) : data_(data) {}

  std::string bytes() {
    if (!data_.starts_with("\xFF\xD8"sv)) throw CompressionError::invalidImage();
    output_ = "\xFF\xD8";
    at_ = 2;
    for (int marker = nextMarker(); marker != JPEGSegments::endOfImage; marker = nextMarker()) {
      if (JPEGSegments::isStandalone(marker)) continue;
      const std::string_view body = takeBody();
      if (marker == JPEGSegments::startOfScan) {
        output_ += JPEGSegments::bytes(marker, body);
        takeScan();
      } else {
        output_ += isOfPixels(marker) ? JPEGSegments::bytes(marker, body) : kept(marker, body);
      }
    }
    return output_ + "\xFF\xD9";
  }

 private:
  int byteAt(std::size_t i) const {
    if (i >= data_.size()) throw CompressionError::invalidImage();
    return static_cast<unsigned char>(data_[i]);
  }

  /// Passes over stray bytes, as decoders do.
  int nextMarker() {
    for (;;) {
      while (byteAt(at_) != 0xFF) ++at_;
      while (byteAt(at_) == 0xFF) ++at_;
      if (const int code = byteAt(at_++)) return code;
    }
  }

  std::string_view takeBody() {
    const auto length = static_cast<std::size_t>(byteAt(at_) << 8 | byteAt(at_ + 1));
    if (length < lengthBytes || length > data_.size() - at_) throw CompressionError::invalidImage();
    const auto body = data_.substr(at_ + lengthBytes, length - lengthBytes);
    at_ += length;
    return body;
  }

  /// The coded data of a scan as they are, to the marker that ends them.
  void takeScan() {
    const std::size_t start = at_;
    for (;; ++at_) {
      while (byteAt(at_) != 0xFF) ++at_;
      const int next = byteAt(at_ + 1);
      if (next != 0 && next != 0xFF && !JPEGSegments::isRestart(next)) break;
    }
    output_.append(data_, start, at_ - start);
  }

  /// What an application's segment says of colours, and nothing that may stand behind it.
  std::string kept(int marker, std::string_view body) {
    constexpr std::size_t headerBytes = 14, adobeBytes = 12;
    if (marker == JPEGSegments::app0 && body.starts_with("JFIF\0"sv) && body.size() >= headerBytes &&
        !hasHeader_) {
      hasHeader_ = true;  // its version stays; no resolution, no thumbnail
      return JPEGSegments::bytes(marker, std::string(body.substr(0, 7)) + std::string("\0\0\1\0\1\0\0"sv));
    }
    if (marker == JPEGSegments::app2 && body.starts_with("ICC_PROFILE\0"sv)) {
      return JPEGSegments::bytes(marker, body);
    }
    if (marker == JPEGSegments::app14 && body.starts_with("Adobe"sv) && body.size() >= adobeBytes) {
      return JPEGSegments::bytes(marker, body.substr(0, adobeBytes));
    }
    return {};
  }

  std::string_view data_;
  std::string output_;
  std::size_t at_ = 0;
  bool hasHeader_ = false;
};

}  // namespace

std::string jpegWithout(const std::string& file) {
  return JPEGWithout(file).bytes();
}

}  // namespace tidewell::metadata
