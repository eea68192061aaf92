// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEIFBoxes.h"

#include <string>

#include "CompressionKit/codecs/HEIFItems.h"
#include "CompressionKit/codecs/HEIFLimits.h"
#include "CompressionKit/codecs/HEVCUnits.h"
#include "support/Target.h"

using namespace tidewell;

namespace {

constexpr std::uint64_t maximumPixels = 1 << 27;

void readItems(std::string_view meta, const heif::ReadAt& readAt) {
  try {
    for (const auto& [id, data] : heif::itemLocations(meta, readAt)) {
      fuzz::require(data.read(3, 64).size() <= 64, "no more is read than was asked for");
      const int orientation = heif::orientation(meta, id);
      fuzz::require(orientation >= 1 && orientation <= 8, "an orientation is one of eight");
      heif::streamColors(meta, id);
    }
  } catch (const ImageDecodeError&) {
  }
}

void checkLimits(std::string_view meta, const heif::ReadAt& readAt) {
  try {
    heif::checkLimits(meta, readAt, {maximumPixels, maximumPixels, 2 * maximumPixels});
  } catch (const ImageDecodeError&) {
  }
}

}  // namespace

/// A file. What is no "meta" box in it is not looked at, so the bytes also stand for what is inside one.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view file = fuzz::text({data, size});
  const heif::ReadAt readAt = [&](std::uint64_t offset, std::size_t bytes) {
    const bool inFile = offset <= file.size() && bytes <= file.size() - offset;
    return std::string(inFile ? file.substr(offset, bytes) : std::string_view());
  };
  heif::container(file.substr(0, heif::headBytes));
  const auto box = heif::payloadOf("meta", file);
  const std::string_view meta = box && box->size() >= 4 ? box->substr(4) : file;
  readItems(meta, readAt);
  checkLimits(meta, readAt);
  if (const auto sequence = hevc::sequence(file)) {
    fuzz::require(sequence->width > 0 && sequence->height > 0 &&
                      sequence->width * sequence->height <= sequence->codedPixels,
                  "what is shown is part of what is coded");
  }
  heif::forEachUnit(file, [](std::string_view unit) { hevc::unitAt(unit); });
  return 0;
}
