#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A file that is no image, an image that is damaged or cut off, or one whose decoding would take more
/// memory than `ImageLimits` allows.
class ImageDecodeError : public std::exception {
 public:
  explicit ImageDecodeError(std::string reason) : reason_(std::move(reason)) {}
  const char* what() const noexcept override { return "图片无法解码"; }
  /// The decoder's own words, for developers.
  const std::string& reason() const { return reason_; }

 private:
  std::string reason_;
};

/// What a hostile file may cost. Images beyond these limits fail with `ImageDecodeError`.
struct ImageLimits {
  /// Formats that cannot be decoded by rows (interlaced PNG, progressive JPEG, a GIF canvas, HEIC) may hold
  /// this much at once.
  static constexpr std::int64_t maximumResidentBytes = std::int64_t{512} << 20;
  /// Metadata kept of one image (colour profile, Exif).
  static constexpr std::int64_t maximumMetadataBytes = std::int64_t{16} << 20;
};

/// The colour spaces of PNGs without a profile, where the difference matters: nothing is said of the colours
/// (they show as sRGB), or only a gamma.
inline constexpr std::string_view untaggedName = "Untagged sRGB";
inline constexpr std::string_view gammaNamePrefix = "RGB gamma ";

/// How an image says what its numbers mean as colours; what a copy of its pixels must carry along so that
/// it shows the same colours.
struct ColorTag {
  std::string icc;                                    ///< embedded ICC profile, empty without one
  bool srgb = false;                                  ///< marked as sRGB, or untagged
  std::optional<double> gamma;                        ///< PNG gAMA (encoding exponent) without ICC or sRGB
  std::optional<std::array<double, 8>> chromaticity;  ///< PNG cHRM: white, red, green, blue as x, y
  std::string codePoints;  ///< the four bytes of a PNG cICP, if nothing else says it
  bool operator==(const ColorTag&) const = default;
};

struct ImageProperties {
  std::int64_t width = 0;  ///< stored pixels, orientation not applied
  std::int64_t height = 0;
  bool hasAlpha = false;
  int bitsPerSample = 8;
  std::optional<std::string> profileName;     ///< description of the embedded ICC profile
  std::optional<std::string> colorSpaceName;  ///< name of the decoded pixels' colour space
  std::optional<int> orientation;             ///< Exif value as stored; absent when the file has none
  std::optional<double> gifDelay;             ///< seconds this frame is shown, as stored (unclamped)
  ColorTag color;
};

/// The rows of one decoded image from top to bottom: 8 bits per component, R, G, B, A, colours premultiplied
/// by alpha, numbers as stored (no conversion between colour spaces), 16-bit samples reduced to 8.
class RowReader {
 public:
  virtual ~RowReader() = default;
  virtual std::int64_t width() const = 0;
  virtual std::int64_t height() const = 0;
  /// The next row into `row` (width × 4 bytes). Throws `ImageDecodeError` for damaged or missing data.
  virtual void read(std::span<std::uint8_t> row) = 0;
  /// Passes over `count` rows; cheaper than reading them where the format allows.
  virtual void skip(std::int64_t count);
};

/// One opened image file. A source reads its file while it is used and belongs to one thread at a time.
class ImageSource {
 public:
  /// Detects the container from its content, not its name. Throws `FileError` when the file cannot be
  /// opened or read, `ImageDecodeError` when it is no image that we know.
  static std::unique_ptr<ImageSource> open(const URL& url);

  virtual ~ImageSource() = default;

  /// "public.jpeg", "public.png", "com.compuserve.gif", "public.heic" or "public.heif".
  virtual std::string_view typeIdentifier() const = 0;
  /// Number of images in the container.
  virtual std::size_t count() = 0;
  /// The image that a viewer shows first.
  virtual std::size_t primaryIndex() { return 0; }
  virtual ImageProperties properties(std::size_t index) = 0;
  /// The loop count as stored in a GIF's looping extension (0 is for ever); absent without the extension.
  virtual std::optional<std::int64_t> gifLoopCount() { return std::nullopt; }

  /// Starts decoding one image. A format that decodes cheaply at a reduced size (JPEG) may deliver a smaller
  /// image, never one whose longer side is below `minimumLongSide`; 0 asks for full size. For GIF, an index
  /// is a frame and its image the composed canvas; reading frames in ascending order costs one pass over
  /// the file. The reader must not outlive the source, and a new reader ends the previous one.
  virtual std::unique_ptr<RowReader> rows(std::size_t index, std::int64_t minimumLongSide = 0) = 0;

  /// Decodes the image completely and throws `ImageDecodeError` unless all of it is there and sound. Costs
  /// less than reading the rows where the format allows.
  virtual void verify(std::size_t index);
};

}  // namespace tidewell
