// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/platform/URL.h"
#include "CompressionKit/tools/ToolRunner.h"
#include "support/HEIFFile.h"
#include "support/TemporaryFolder.h"

namespace tidewell::test {

/// A picture as a function: straight R, G, B, A of 16 bits at (x, y).
using DeepPixel = std::array<std::uint16_t, 4>;
struct Picture {
  std::int64_t width = 96;
  std::int64_t height = 64;
  std::function<DeepPixel(std::int64_t x, std::int64_t y)> at;
};

/// Smooth, so that it survives lossy encoding, and no two places alike.
inline Picture slopes(std::int64_t width = 96, std::int64_t height = 64) {
  return {width, height, [=](std::int64_t x, std::int64_t y) {
            const auto part = [](std::int64_t value, std::int64_t size) {
              return static_cast<std::uint16_t>(value * 65535 / (size - 1));
            };
            return DeepPixel{part(x, width), part(y, height), 0x4000, 0xffff};
          }};
}

/// `bits` (8 or 16) is the depth of the PNG.
inline void writePicture(const Picture& picture, const URL& png, bool alpha = false, int bits = 8) {
  PNGWriter::Options options;
  options.width = picture.width;
  options.height = picture.height;
  options.hasAlpha = alpha;
  options.bitsPerSample = bits;
  options.color.srgb = true;
  PNGWriter writer(png, options);
  for (std::int64_t y = 0; y < picture.height; ++y) {
    std::vector<std::uint8_t> row;
    for (std::int64_t x = 0; x < picture.width; ++x) {
      const DeepPixel pixel = picture.at(x, y);
      for (std::size_t sample = 0; sample < (alpha ? 4U : 3U); ++sample) {
        row.push_back(static_cast<std::uint8_t>(pixel[sample] >> 8));
        if (bits == 16) row.push_back(static_cast<std::uint8_t>(pixel[sample]));
      }
    }
    writer.writeStraightRow(row);
  }
  writer.finish();
}

inline bool hasHEIFEncoder() {
  return ToolRunner(URL::file("/usr/bin")).has("heif-enc");
}

/// The picture as heif-enc writes it, without a colour box: the tests add their own.
inline HEIFFile encodeHEIC(const Picture& picture, bool alpha = false, int bits = 8,
                           const std::vector<std::string>& options = {}) {
  const TemporaryFolder folder;
  writePicture(picture, folder / "picture.png", alpha, bits);
  std::vector<std::string> arguments = {"-q", "95", (folder / "picture.png").path(), "-o",
                                        (folder / "picture.heic").path()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  ToolRunner(URL::file("/usr/bin"))
      .run("heif-enc", arguments, 120, {.readable = {}, .writable = {folder.url()}});
  return HEIFFile::read(folder / "picture.heic").without("colr");
}

/// Skips tests that need heif-enc where it is missing, or fails them where the tools are required.
#define TIDEWELL_NEEDS_HEIF_ENCODER()                                          \
  if (!test::hasHEIFEncoder()) {                                               \
    ASSERT_STRNE(std::getenv("TIDEWELL_REQUIRE_TOOLS"), "1") << "no heif-enc"; \
    GTEST_SKIP() << "no heif-enc";                                             \
  }                                                                            \
  static_assert(true)

}  // namespace tidewell::test
