#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/// What the boxes of a HEIF file say (ISO/IEC 14496-12 box structure, ISO/IEC 23008-12 item properties) that
/// the decoder library of Debian 12 keeps to itself. Every number in a file is hostile until checked.
namespace tidewell::heif {

/// "public.heic", "public.heif" or "public.avif" by the brands of the
/// "ftyp" box that opens the file; nothing for other files. `head` is the file's first bytes, `headBytes` are
/// enough.
std::optional<std::string_view> typeIdentifier(std::string_view head);
constexpr std::size_t headBytes = 512;

/// A part of an image's coded pixels.
struct Rectangle {
  std::int64_t x = 0;
  std::int64_t y = 0;
  std::int64_t width = 0;
  std::int64_t height = 0;
};

/// How one image item is shown.
struct ItemView {
  std::int64_t codedWidth = 0;  ///< "ispe": before every transformation
  std::int64_t codedHeight = 0;
  Rectangle crop;       ///< what "clap" leaves of them; all of them without it
  int orientation = 1;  ///< Exif value (1 to 8) that says the same as "irot" and "imir" together
};

/// The view of one item, by the "meta" box of the file. Nothing when the item is not a coded image or a grid,
/// or is cropped after it was turned (which no writer should do): such an item cannot be told by one
/// rectangle and one orientation, and only a decoder that applies every transformation shows it right. `meta`
/// is the box's payload, behind version and flags.
std::optional<ItemView> itemView(std::string_view meta, std::uint32_t itemID);

}  // namespace tidewell::heif
