// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/TIFFDirectories.h"
#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

using namespace std::string_view_literals;

constexpr std::uint32_t orientationTag = 0x0112;

}  // namespace

std::optional<std::string> uprightExif(std::string_view tiff) {
  const TIFFDirectories directories(tiff);
  if (!directories.isSound()) return std::nullopt;
  std::string result(tiff);
  directories.forEachEntry(directories.first(), [&](const TIFFDirectories::Entry& entry) {
    if (entry.tag != orientationTag) return;
    // The rest of the entry, whatever its type was: a SHORT, one, 1.
    const auto upright = directories.isLittleEndian() ? "\3\0\1\0\0\0\1\0\0\0"sv : "\0\3\0\0\0\1\0\1\0\0"sv;
    result.replace(entry.position + 2, upright.size(), upright);
  });
  return result;
}

}  // namespace tidewell::metadata
