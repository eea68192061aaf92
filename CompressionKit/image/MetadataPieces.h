// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CompressionKit/codecs/ImageInput.h"
#include "CompressionKit/platform/Stop.h"

/// How each format holds its metadata; what `Metadata.h` is made of.
namespace tidewell::metadata {

/// A segment, chunk, extension or item of a file.
struct Piece {
  enum class Kind {
    exif,
    xmp,
    xmpExtension,
    photoshop,
    comment,
    text,
    density,
    date,
    other,    ///< carried as it is, whatever it says
    profile,  ///< this and what follows is not carried
    pictureIndex,
  };
  Kind kind;
  std::string whole;       ///< as it stands in the file, but for JPEG: the marker's code and the body
  std::size_t prefix = 0;  ///< bytes of it before the data itself
  std::size_t suffix = 0;  ///< and behind it
  bool afterPixels = false;

  std::string_view data() const {
    return std::string_view(whole).substr(prefix, whole.size() - prefix - suffix);
  }
  bool isCarried() const { return kind < Kind::profile; }
};

/// Those of one file, in their order, and what is only counted of it.
class Pieces {
 public:
  /// Throws `CompressionError::validationFailed` above `maximumBytes` of them all.
  void add(Piece piece);

  std::vector<Piece> all;
  std::uint64_t unknownBytes = 0;  ///< in what is neither carried nor of a known kind
  /// Of PNG chunks among these that nobody may copy beside other pixels who does not know them, as editors
  /// keep layers in.
  std::uint64_t unsafeBytes = 0;
  bool isCut = false;               ///< the file has more than `maximumBytes` of them
  std::optional<std::int64_t> end;  ///< where the picture of a PNG or GIF ends

 private:
  std::size_t bytes_ = 0;
};

// All pieces of a file, also what is not carried. A malformed file makes them throw
// `CompressionError::invalidImage` once `pieces` has all that comes before.
void readJPEG(const ImageInput& file, Pieces& pieces, const StopToken& stop);
void readPNG(const ImageInput& file, Pieces& pieces, const StopToken& stop);
void readGIF(const ImageInput& file, Pieces& pieces, const StopToken& stop);
/// Exif (from its byte-order mark) and XMP of the primary image.
void readHEIC(const ImageInput& file, Pieces& pieces, const StopToken& stop);

/// Those of a file of any kind that can be read; none of one of no known kind.
Pieces readablePieces(const ImageInput& file, const StopToken& stop);

/// What follows the end of a picture.
struct Behind {
  std::uint64_t bytes = 0;  ///< of JPEG, PNG and GIF; 0 where all are zero, with which some devices pad
  std::uint64_t video = 0;  ///< of JPEG and HEIC: from where one begins to the file's end; 0 without one
};
/// `pieces` are those of the file. One pass over a JPEG or HEIC; little is read of other files.
Behind whatLiesBehind(const ImageInput& file, const Pieces& pieces, const StopToken& stop);

// The bytes of a candidate with these pieces, of a file of its kind, in place of its own. Throw
// `CompressionError::invalidImage`.
std::string jpegWith(const Pieces& pieces, const std::string& candidate);
std::string pngWith(const Pieces& pieces, const std::string& candidate);
std::string gifWith(const Pieces& pieces, const std::string& candidate);

// The bytes of a file of which nothing is left but what decides how its pixels are shown, without an
// orientation. Throw `CompressionError::invalidImage`.
std::string jpegWithout(const std::string& file);
std::string pngWithout(const std::string& file);
std::string gifWithout(const std::string& file);

/// Takes references to what lies behind a JPEG's picture out of its XMP.
void dropReferences(Pieces& jpeg);
/// What `readHEIC` reads, as chunks of an upright PNG.
Pieces asUprightPNG(const Pieces& heic);

/// What goes from an XMP packet beside references to what lies behind the picture.
struct XMPOmissions {
  bool orientation = false;
  bool extension = false;  ///< the name of its extension
};
/// The packet, otherwise byte for byte; nothing for one that holds any of that and cannot be read.
std::optional<std::string> xmpWithout(const XMPOmissions& omissions, std::string_view packet);
/// A packet or an extension says how to find what lies behind the picture.
bool namesWhatLiesBehind(std::string_view xmp);
/// A packet says that a video lies behind the picture.
bool namesVideo(std::string_view packet);

/// An Exif block with the orientation of an upright image; nothing for one that cannot be read.
std::optional<std::string> uprightExif(std::string_view tiff);

}  // namespace tidewell::metadata
