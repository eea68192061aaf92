#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>

#include "CompressionKit/platform/URL.h"
#include "CompressionKit/platform/codecs/ImageSource.h"

// What `ImageSource::open` chooses from. A new format is a file beside these and a line in ImageSource.cpp.
namespace tidewell {

bool looksLikeJPEG(std::string_view head);
bool looksLikePNG(std::string_view head);
bool looksLikeGIF(std::string_view head);

std::unique_ptr<ImageSource> openJPEG(const URL& url);
/// Holds the coefficients of progressive images as libjpeg does while that takes at most `maximumPlainBytes`.
std::unique_ptr<ImageSource> openJPEG(const URL& url, std::int64_t maximumPlainBytes);
std::unique_ptr<ImageSource> openPNG(const URL& url);
std::unique_ptr<ImageSource> openGIF(const URL& url);

// --- What the decoders share -------------------------------------------------------------------------------

/// The name of the colour space of an image marked as sRGB, and, but for PNG, of an untagged one.
inline constexpr const char* sRGBName = "sRGB IEC61966-2.1";

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

/// Opens for reading with close-on-exec. Throws `FileError`.
File openFile(const URL& url);

/// Puts an embedded profile into the properties: its name, and what a copy in RGB must carry. A profile that
/// cannot be read counts as absent.
void describeProfile(ImageProperties& properties, std::string icc);

}  // namespace tidewell
