#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// What the boxes of a HEIF file say (ISO/IEC 14496-12 box structure, ISO/IEC 23008-12 item properties) that
/// the decoder library of Debian 12 keeps to itself. Every number in a file is hostile until checked.
namespace tidewell::heif {

/// "public.heic", "public.heif" or "public.avif" by the brands of the
/// "ftyp" box that opens the file; nothing for other files. `head` is the file's first bytes, `headBytes` are
/// enough.
std::optional<std::string_view> typeIdentifier(std::string_view head);
constexpr std::size_t headBytes = 512;

/// The Exif orientation (1 to 8) that says the same as the turns and mirrorings ("irot", "imir") of one item
/// together, in their order. `meta` is the payload of the file's "meta" box, behind version and flags.
int orientation(std::string_view meta, std::uint32_t itemID);

}  // namespace tidewell::heif
