// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/JPEGSegments.h"

namespace tidewell {
namespace {

/// The next marker's code; -1 at the end. Passes over stray bytes as the decoder does: a photo must not lose
/// its orientation to them.
int nextMarker(std::FILE* file) {
  for (;;) {
    int code = std::getc(file);
    while (code >= 0 && code != 0xFF) code = std::getc(file);
    while (code == 0xFF) code = std::getc(file);
    if (code != 0) return code;
  }
}

}  // namespace

std::optional<std::int64_t> JPEGSegments::walk(std::FILE* file, const StopToken& stop, const Wanted& wanted,
                                               const Visit& visit) {
  std::string body;
  std::rewind(file);
  for (;;) {
    stop.throwIfStopped();
    const int marker = nextMarker(file);
    if (marker < 0) return std::nullopt;
    if (marker == startOfScan || marker == endOfImage) return std::int64_t{std::ftell(file)} - 2;
    if (isStandalone(marker)) continue;
    const int high = std::getc(file), low = std::getc(file);
    const int length = high * 256 + low - 2;
    if (high < 0 || low < 0 || length < 0) return std::nullopt;
    if (!wanted(marker)) {
      if (std::fseek(file, length, SEEK_CUR) != 0) return std::nullopt;
      continue;
    }
    body.resize(static_cast<std::size_t>(length));
    if (std::fread(body.data(), 1, body.size(), file) != body.size()) return std::nullopt;
    visit(marker, body);
  }
}

std::string JPEGSegments::bytes(int marker, std::string_view body) {
  const std::size_t length = body.size() + 2;  // with its own bytes
  std::string bytes = "\xFF";
  for (const std::size_t value : {static_cast<std::size_t>(marker), length >> 8, length & 0xFF}) {
    bytes += static_cast<char>(value);
  }
  return bytes.append(body);
}

}  // namespace tidewell
