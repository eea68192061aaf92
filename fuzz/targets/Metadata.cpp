// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/Metadata.h"

#include <set>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/platform/Files.h"
#include "support/Images.h"
#include "support/Rewriting.h"

using namespace tidewell;

namespace {

/// One grey pixel.
constexpr std::string_view png(
    "\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\10\0\0\0\0\x3A\x7E\x9B\x55\0\0\0\nIDAT"
    "\x78\x9C\x63\x60\0\0\0\2\0\1\x48\xAF\xA4\x71\0\0\0\0IEND\xAE\x42\x60\x82",
    67);

/// The bytes that `candidate` has with the metadata of the input; nothing when it was refused.
std::optional<std::string> carried(const URL& original, std::string_view candidate) {
  const URL url = original.deletingLastPathComponent().appending("candidate");
  files::writeAtomically(url, candidate, files::Durability::cached);
  try {
    metadata::carry(original, url);
  } catch (const CompressionError&) {
    fuzz::require(files::read(url) == candidate, "a candidate that is refused stays as it was");
    return std::nullopt;
  }
  return files::read(url);
}

/// The file's bytes once it was stripped; nothing when that was refused.
std::optional<std::string> stripped(const URL& file, std::string_view data) {
  const URL url = file.deletingLastPathComponent().appending("stripped");
  files::writeAtomically(url, data, files::Durability::cached);
  try {
    metadata::strip(url);
  } catch (const CompressionError&) {
    fuzz::require(files::read(url) == data, "a file that is refused stays as it was");
    return std::nullopt;
  }
  return files::read(url);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  const fuzz::ImageFile file(input, "image");
  metadata::embedsMedia(file.url());
  std::set<std::string> names;
  for (const auto& entry : metadata::entries(file.url())) {
    fuzz::require(entry.bytes > 0 && names.insert(entry.name).second, "what a file says is named once");
  }
  const bool isHEIF = heif::container(fuzz::text(input).substr(0, heif::headBytes)).has_value();
  if (const auto bare = stripped(file.url(), fuzz::text(input))) {
    fuzz::require(stripped(file.url(), *bare) == bare, "nothing is left that could go");
  }
  const auto result = carried(file.url(), isHEIF ? png : fuzz::text(input));
  if (!result) return 0;
  fuzz::require(carried(file.url(), *result) == result, "a second time changes nothing");

  const auto before = fuzz::openSmall(input);
  if (isHEIF || !before) return 0;
  const auto after = fuzz::openSmall({reinterpret_cast<const std::uint8_t*>(result->data()), result->size()});
  fuzz::require(after != nullptr, "it is an image");
  fuzz::require(after->properties(0).orientation == before->properties(0).orientation,
                "it stands as it stood");
  fuzz::require(fuzz::pixelsOf(*before, 0) == fuzz::pixelsOf(*after, 0), "it has the pixels that it had");
  return 0;
}
