// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/GIFDecoder.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "CompressionKit/image/GIFFrames.h"
#include "support/Images.h"

using namespace tidewell;

namespace {

using Canvas = GIFAnimation::Canvas;

std::optional<Canvas> canvasOf(GIFAnimation& animation, std::size_t index) {
  try {
    return animation.canvas(index);
  } catch (const ImageDecodeError&) {
    return std::nullopt;
  }
}

bool isWithin(const GIFAnimation::Area& area, const Canvas& canvas) {
  return area.left >= 0 && area.top >= 0 && area.width >= 0 && area.height >= 0 &&
         area.left <= canvas.width - area.width && area.top <= canvas.height - area.height;
}

/// Two animations in step: while all frames before are the same, what has changed tells whether these are,
/// too.
void compareByChanges(fuzz::Input one, fuzz::Input other) {
  if (!fuzz::openSmall(other)) return;
  const auto first = openAnimation(ImageInput(one), {}), second = openAnimation(ImageInput(other), {});
  const std::size_t frames = std::min({first->count(), second->count(), fuzz::maximumImages});
  for (std::size_t i = 0; i < frames; ++i) {
    const auto a = canvasOf(*first, i), b = canvasOf(*second, i);
    if (!a || !b) return;
    for (const auto& area : a->changed)
      fuzz::require(isWithin(area, *a), "a changed area lies on the canvas");
    const bool agree = a->width == b->width && std::ranges::equal(a->pixels, b->pixels);
    fuzz::require(agree == canvases::agreeInChanges(*a, *b, canvases::Compared::pixels),
                  "frames agree where they changed when they agree everywhere");
    fuzz::require(!agree || canvases::agreeInChanges(*a, *b, canvases::Compared::alpha),
                  "so does their alpha");
    if (!agree) return;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  if (!looksLikeGIF(fuzz::text(input))) return 0;
  const auto source = fuzz::openSmall(input);
  if (!source) return 0;
  fuzz::decodeInEveryWay(*source);
  // A byte that the last two tell, so that a fuzzer reaches every one.
  std::vector<std::uint8_t> changed(input.begin(), input.end());
  changed[(std::size_t{data[size - 1]} << 8 | data[size - 2]) % size] ^= 1;
  compareByChanges(input, changed);
  return 0;
}
