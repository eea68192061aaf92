// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

/// What an image file says beside its pixels and their colours: date, place, camera, author, text.
/// Every file may be hostile. An original's pixels are not read; a candidate is held in memory once or twice.
namespace tidewell::metadata {

/// What is held of the metadata of one file; a file with more of it is refused.
constexpr std::size_t maximumBytes = std::size_t{64} << 20;

/// Writes `candidate`, made of `original`, anew with the metadata of `original` in place of its own, byte for
/// byte; nothing is written when that is what it has. Both are JPEG, PNG or GIF, or a HEIC became a PNG.
/// Pixels, colour profile and all else that says how to show them stay the candidate's.
///
/// - JPEG: Exif with its thumbnail, XMP with its extension, Photoshop and IPTC (APP13), comments, the density
///   of JFIF (which is added where it cannot change colours), FlashPix, and whatever applications say in
///   other segments, as thermal data. Not kept: APP14 and SPIFF (decide colours), ICC profiles, the index of
///   further pictures (MPF), what else stands in APP0, APP2 (of gain maps) and APP11 (signatures of the old
///   bytes, layers of its samples), and what lies behind the picture.
/// - PNG: eXIf, tEXt, zTXt, iTXt, pHYs, tIME, and all chunks that are marked as safe to copy, but for those
///   that say how to show the pixels.
/// - GIF: comments and XMP.
/// - HEIC to PNG: Exif, whose orientation becomes 1, for the PNG is upright, and XMP.
///
/// References in XMP to what lies behind the picture (gain maps, videos, depth maps) go, for that is not
/// carried; all else of a packet stays as it is, and a packet that has some and cannot be read goes whole.
///
/// May be called before or after `preserveOrientation`. Throws `CompressionError` (`invalidImage`;
/// `validationFailed` above `maximumBytes` and for other pairs of kinds) or `FileError`; the candidate is
/// untouched then.
void carry(const URL& original, const URL& candidate, const StopToken& stop = {});

/// Writes the file, a JPEG, PNG or GIF, anew without anything that it says beside its pixels; nothing is
/// written when it has none of that. What is not known to say how to show pixels goes: Exif with the
/// orientation, which is the caller's to put back, resolution and thumbnails, chunks, segments and
/// extensions of any program, what lies behind the end of the picture. Colour profiles stay as they are, and
/// so do the coded pixels.
///
/// Throws `CompressionError` (`invalidImage`, also for other kinds) or `FileError`; the file is untouched
/// then.
void strip(const URL& file, const StopToken& stop = {});

/// More than a picture is in the file, of what `carry` would leave: a video lies behind the picture (a motion
/// photo), or its XMP says so; more than 1 KiB of anything but zeros follows the end of a JPEG, PNG or GIF,
/// and no index says that it is pictures which serve the first one; more than 1 KiB of a PNG lies in chunks
/// that are not safe to copy and that no standard knows; or it has more than `maximumBytes`. False for what
/// cannot be read.
bool embedsMedia(const URL& file, const StopToken& stop = {});

/// One thing that a file says. The names are fixed and English: "date", "place", "camera", "author",
/// "copyright", "description", "Exif", "XMP", "IPTC", "comment", "text", "resolution", "thumbnail",
/// "profile", "further pictures", "video", "other data": all else that is not of the pixels and their
/// colours, between and behind them; zeros behind them count as nothing.
struct Entry {
  std::string name;
  std::uint64_t bytes;  ///< how much of the file it takes
  bool operator==(const Entry&) const = default;
};

/// Each name once, in the order above; all that could be read of a damaged file. Throws `FileError`.
std::vector<Entry> entries(const URL& file, const StopToken& stop = {});

/// The names that `before` has and `after` has not, and "other data" also where `after` has less of it.
std::vector<std::string> gone(const std::vector<Entry>& before, const std::vector<Entry>& after);

}  // namespace tidewell::metadata
