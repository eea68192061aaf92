// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/MetadataNames.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Texts.h"

namespace tidewell {
namespace {

/// What metadata is called, for the translation.
constexpr const char* metadataNames[] = {
    N_("date"),        N_("place"),      N_("camera"),    N_("author"),  N_("copyright"),
    N_("description"), N_("Exif"),       N_("XMP"),       N_("IPTC"),    N_("comment"),
    N_("text"),        N_("resolution"), N_("thumbnail"), N_("profile"), N_("further pictures"),
    N_("video"),       N_("other data"),
};

}  // namespace

std::string metadataText(const std::vector<std::string>& names) {
  std::string text;
  for (const auto& name : names) {
    const auto* const known = std::ranges::find(metadataNames, std::string_view(name));
    if (!text.empty()) text += ", ";
    text += known == std::end(metadataNames) ? printable(name) : _(*known);
  }
  return text.empty() ? _("nothing") : text;
}

}  // namespace tidewell
