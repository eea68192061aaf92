// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/JPEGSegments.h"

namespace tidewell {
namespace {

constexpr int startOfImage = 0xD8, endOfImage = 0xD9, startOfScan = 0xDA;

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

bool isStandalone(int marker) {
  return marker == startOfImage || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7);
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

}  // namespace tidewell
