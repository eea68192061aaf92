// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>

#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/codecs/PNGBytes.h"
#include "support/Images.h"
#include "support/PNGSums.h"

using namespace tidewell;

namespace {

/// Whether the only marker behind the start of the only scan is the end of the image. Proving a JPEG takes it
/// to its end, which the rows may do without.
bool endsAsItShouldJPEG(std::string_view file) {
  const auto scan = file.find("\xFF\xDA");
  if (scan == std::string_view::npos) return false;
  for (std::size_t i = scan + 2; i + 1 < file.size(); ++i) {
    if (file[i] != '\xFF') continue;
    const auto marker = static_cast<unsigned char>(file[i + 1]);
    if (marker == 0xD9) return true;
    if (marker != 0 && (marker < 0xD0 || marker > 0xD7)) return false;
  }
  return false;
}

/// The same for a PNG: right sums everywhere, and nothing but the end behind the pixels.
bool endsAsItShouldPNG(std::string_view file) {
  std::vector<std::uint8_t> corrected(file.begin(), file.end());
  fuzz::correctPNGSums(corrected);
  bool inPixels = false;
  for (std::size_t at = pngSignature.size(); file.size() - at >= pngChunkOverhead;) {
    const std::size_t length = bigEndian32(file, at);
    const std::string_view type = file.substr(at + 4, 4);
    if (length > file.size() - at - pngChunkOverhead) return false;
    at += length + pngChunkOverhead;
    if (!std::equal(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(at), corrected.begin(),
                    [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }))
      return false;
    if (type == "IEND") return length == 0;
    if (inPixels && type != "IDAT") return false;
    inPixels = type == "IDAT";
  }
  return false;
}

bool endsAsItShould(Container container, std::string_view file) {
  if (container == Container::jpeg) return endsAsItShouldJPEG(file);
  return container != Container::png || endsAsItShouldPNG(file);
}

void compare(ImageSource& proved, ImageSource& decoded, std::string_view file) {
  for (std::size_t i = 0; i < std::min(proved.count(), fuzz::maximumImages); ++i) {
    const bool isSound = fuzz::isSound(proved, i), isWhole = fuzz::pixelsOf(decoded, i).has_value();
    fuzz::require(isWhole || !isSound, "what is proved sound decodes to its last row");
    fuzz::require(isSound || !isWhole || !endsAsItShould(proved.container(), file),
                  "what decodes to its last row, and ends there, is proved sound");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  const auto proved = fuzz::openSmall(input), decoded = fuzz::openSmall(input);
  if (!proved) return 0;
  compare(*proved, *decoded, fuzz::text(input));
  if (proved->container() != Container::jpeg) return 0;
  const auto sparse = openJPEG(ImageInput(input), {}, /*maximumPlainBytes=*/0);
  compare(*sparse, *decoded, fuzz::text(input));
  return 0;
}
