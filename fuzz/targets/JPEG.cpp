// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "support/Images.h"

using namespace tidewell;

namespace {

/// A part that is kept while the image is reduced must be what stands there at full size.
void compareKept(ImageSource& source, const std::vector<std::uint8_t>& whole) {
  const ImageProperties properties = source.properties(0);
  const Rectangle part{.x = properties.width / 3,
                       .y = properties.height / 3,
                       .width = (properties.width + 2) / 3,
                       .height = (properties.height + 2) / 3};
  const auto rowBytes = static_cast<std::size_t>(properties.width) * 4;
  const auto partBytes = static_cast<std::size_t>(part.width) * 4;
  for (const std::int64_t divisor : {2, 4, 8}) {
    const auto rows = source.rowsKeeping(0, std::max(properties.width, properties.height) / divisor, part);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(rows->width()) * 4);
    for (auto y = rows->height(); y > 0; --y) rows->read(row);
    std::vector<std::uint8_t> kept(partBytes * static_cast<std::size_t>(part.height));
    if (!rows->readKept(kept)) continue;
    for (std::size_t y = 0; y < static_cast<std::size_t>(part.height); ++y) {
      const auto* expected = whole.data() + (static_cast<std::size_t>(part.y) + y) * rowBytes +
                             static_cast<std::size_t>(part.x) * 4;
      fuzz::require(std::equal(expected, expected + partBytes, kept.data() + y * partBytes),
                    "what is kept is what stands at full size");
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  if (!looksLikeJPEG(fuzz::text(input))) return 0;
  const auto source = fuzz::openSmall(input);
  if (!source) return 0;
  fuzz::decodeInEveryWay(*source);
  if (const std::string icc = source->properties(0).color.icc; !icc.empty()) color::isSRGB(icc);
  // As large images are decoded.
  const auto sparse = openJPEG(ImageInput(input), {}, /*maximumPlainBytes=*/0);
  for (const std::int64_t side : {0, 1}) {
    fuzz::require(fuzz::pixelsOf(*source, 0, side) == fuzz::pixelsOf(*sparse, 0, side),
                  "sparse coefficients give the pixels of plain ones");
  }
  if (const auto whole = fuzz::pixelsOf(*source, 0)) compareKept(*source, *whole);
  fuzz::require(fuzz::isSound(*source, 0) == fuzz::isSound(*sparse, 0), "both prove the same");
  return 0;
}
