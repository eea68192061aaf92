#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "support/Images.h"

using namespace tidewell;

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
  fuzz::require(fuzz::isSound(*source, 0) == fuzz::isSound(*sparse, 0), "both prove the same");
  return 0;
}
