// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEICDecoder.h"

#include <libheif/heif.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "CompressionKit/codecs/HEICColor.h"
#include "CompressionKit/codecs/HEICPixels.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/HEIFItems.h"
#include "CompressionKit/codecs/HEIFLimits.h"
#include "CompressionKit/codecs/HEVCDecoder.h"
#include "CompressionKit/codecs/PNGWriter.h"

namespace tidewell {
namespace {

/// Of one decoding, beside the calling thread; several files are decoded at once elsewhere.
constexpr int decodingThreads = 2;

void check(const heif_error& error) {
  if (error.code != heif_error_Ok) throw ImageDecodeError(error.message ? error.message : "libheif");
}

struct Release {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(const heif_image_handle* handle) const { heif_image_handle_release(handle); }
  void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
};
using Context = std::unique_ptr<heif_context, Release>;
using Handle = std::unique_ptr<const heif_image_handle, Release>;

/// The file as libheif reads it, a few bytes at a time: positions beyond the end and failed reads are its
/// errors, not ours. Reads nothing more once a stop was requested.
struct HEIFInput {
  ImageInput input;
  StopToken stop;
  std::int64_t size = input.size();
  std::int64_t position = 0;
  std::array<char, 4096> window;
  std::int64_t windowStart = 0;
  std::int64_t windowSize = 0;

  bool readAt(std::int64_t offset, void* data, std::size_t bytes) {
    if (stop.stopRequested()) return false;
    if (offset < 0) return false;  // a position of the file's own making
    if (bytes > window.size()) return input.readAt(offset, data, bytes) == static_cast<ssize_t>(bytes);
    const auto wanted = static_cast<std::int64_t>(bytes);
    const auto isHeld = [&] { return offset >= windowStart && offset - windowStart <= windowSize - wanted; };
    if (!isHeld()) {
      windowStart = offset;
      windowSize = input.readAt(offset, window.data(), window.size());
      if (!isHeld()) return false;
    }
    std::copy_n(window.begin() + (offset - windowStart), wanted, static_cast<char*>(data));
    return true;
  }

  static heif_reader reader() {
    heif_reader reader{};
    reader.reader_api_version = 1;
    reader.get_position = [](void* file) { return static_cast<HEIFInput*>(file)->position; };
    reader.read = [](void* data, std::size_t bytes, void* file) {
      HEIFInput& self = *static_cast<HEIFInput*>(file);
      if (!self.readAt(self.position, data, bytes)) return 1;
      self.position += static_cast<std::int64_t>(bytes);
      return 0;
    };
    reader.seek = [](std::int64_t target, void* file) {
      static_cast<HEIFInput*>(file)->position = target;
      return 0;
    };
    reader.wait_for_file_size = [](std::int64_t wanted, void* file) {
      return wanted <= static_cast<HEIFInput*>(file)->size ? heif_reader_grow_status_size_reached
                                                           : heif_reader_grow_status_size_beyond_eof;
    };
    return reader;
  }
};

std::uint64_t bigEndian(const unsigned char* bytes, int count) {
  std::uint64_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

/// The payload of the file's only "meta" box behind version and flags.
std::string metaOf(HEIFInput& file) {
  constexpr int maximumBoxes = 1000;
  std::optional<std::string> meta;
  std::int64_t offset = 0;
  for (int boxes = 0; offset < file.size; ++boxes) {
    unsigned char header[16];
    if (boxes >= maximumBoxes) throw ImageDecodeError("too many boxes");
    if (!file.readAt(offset, header, 8)) break;  // a few stray bytes at the end
    std::uint64_t size = bigEndian(header, 4);
    std::int64_t headerSize = 8;
    if (size == 1 && file.readAt(offset + 8, header + 8, 8)) {
      size = bigEndian(header + 8, 8);
      headerSize = 16;
    } else if (size == 0) {
      size = static_cast<std::uint64_t>(file.size - offset);
    }
    const auto left = static_cast<std::uint64_t>(file.size - offset);
    const bool whole = size >= static_cast<std::uint64_t>(headerSize) && size <= left;
    if (std::memcmp(header + 4, "meta", 4) == 0) {
      const std::int64_t payload = static_cast<std::int64_t>(size) - headerSize - 4;
      if (meta || !whole || payload < 0 || payload > ImageLimits::maximumMetadataBytes) {
        throw ImageDecodeError("meta box cut off, too large or not the only one");
      }
      std::string& held = meta.emplace(static_cast<std::size_t>(payload), '\0');
      if (!file.readAt(offset + headerSize + 4, held.data(), held.size())) throw ImageDecodeError("meta box");
    }
    if (!whole) break;
    offset += static_cast<std::int64_t>(size);
  }
  if (!meta) throw ImageDecodeError("no meta box");
  return *std::move(meta);
}

constexpr std::int64_t maximumPixels = ImageLimits::maximumResidentBytes / 3;
/// A HEVC decoder takes up to twelve bytes for each pixel of a picture; grids reach beyond this size in
/// tiles.
constexpr std::int64_t maximumCodedPixels = ImageLimits::maximumResidentBytes / 8;

void limit(heif_context* context) {
#if LIBHEIF_NUMERIC_VERSION >= 0x01130000  // 1.19
  heif_security_limits* limits = heif_context_get_security_limits(context);
  limits->max_image_size_pixels = maximumPixels;
  limits->max_memory_block_size = ImageLimits::maximumResidentBytes;
  limits->max_color_profile_size = ImageLimits::maximumMetadataBytes;
#else
  heif_context_set_maximum_image_size_limit(context, 65535);  // of one side
#endif
  heif_context_set_max_decoding_threads(context, decodingThreads);
}

}  // namespace

struct HEICSource::Impl {
  Impl(const ImageInput& input, const StopToken& token)
      : file{.input = input, .stop = token, .window = {}}, stop(token) {
    // Once per process and never undone: codec plugins stay loaded while images may be decoded.
    static const heif_error initialised = [] {
      const heif_error error = heif_init(nullptr);
      return error.code == heif_error_Ok ? heif_register_decoder_plugin(&hevc::strictDecoder()) : error;
    }();
    check(initialised);
    const auto detected = heif::container(input.head(heif::headBytes));
    if (!detected) throw ImageDecodeError("no HEIF file");
    container = *detected;
    if (container == Container::avif) {
      ids.resize(1);
      return;
    }
    meta = metaOf(file);

    const auto readAt = [this](std::uint64_t offset, std::size_t bytes) {
      std::string data(bytes, '\0');
      const auto inFile = offset <= static_cast<std::uint64_t>(file.size) &&
                          bytes <= static_cast<std::uint64_t>(file.size) - offset;
      return inFile && file.readAt(static_cast<std::int64_t>(offset), data.data(), bytes) ? data
                                                                                          : std::string();
    };
    heif::checkLimits(meta, readAt,
                      {.maximumPixels = maximumPixels,
                       .maximumCodedPixels = maximumCodedPixels,
                       .maximumWork = 2 * maximumPixels});

    context.reset(heif_context_alloc());
    if (!context) throw std::bad_alloc();
    limit(context.get());
    check(heif_context_read_from_reader(context.get(), &reader, &file, nullptr));
    const int number = heif_context_get_number_of_top_level_images(context.get());
    ids.resize(static_cast<std::size_t>(std::max(number, 0)));
    heif_context_get_list_of_top_level_image_IDs(context.get(), ids.data(), number);
  }

  /// One image before it is decoded.
  struct Image {
    Handle handle;
    std::int64_t width = 0;  ///< upright
    std::int64_t height = 0;
    heif::Color color;
    ImageProperties properties;
    int bits = 8;  ///< per sample of the file
  };

  Image image(std::size_t index) const {
    if (index >= ids.size() || !context) throw ImageDecodeError("no such image");
    heif_image_handle* raw = nullptr;
    check(heif_context_get_image_handle(context.get(), ids[index], &raw));
    Image image;
    image.handle.reset(raw);

    // libheif turns, mirrors and crops; what it did is told as the orientation of the stored image.
    image.width = heif_image_handle_get_width(raw);
    image.height = heif_image_handle_get_height(raw);
    const int orientation = heif::orientation(meta, ids[index]);
    ImageProperties& properties = image.properties;
    properties.orientation = orientation;
    properties.width = orientation < 5 ? image.width : image.height;
    properties.height = orientation < 5 ? image.height : image.width;
    image.bits = heif_image_handle_get_luma_bits_per_pixel(raw);
    if (properties.width < 1 || properties.height < 1 || image.bits < 1 || image.bits > 16) {
      throw ImageDecodeError("impossible size or depth");
    }
    image.color = heif::colorOf(raw, heif::streamColors(meta, ids[index]));
    properties.hasAlpha = heif_image_handle_has_alpha_channel(raw) != 0;
    properties.bitsPerSample = image.bits > 8 || image.color.hdr ? 16 : 8;
    properties.profileName = image.color.profileName;
    properties.colorSpaceName = image.color.colorSpaceName;
    properties.color = image.color.tag;
    return image;
  }

  const heif::Pixels& decode(std::size_t index) {
    if (decoded && decodedIndex == index) return *decoded;
    decoded.reset();
    const Image image = this->image(index);
    const bool wide = image.bits > 8;
    const bool alpha = image.properties.hasAlpha;
    const std::int64_t bytesPerPixel = (alpha ? 4L : 3L) * (wide ? 2 : 1);
    if (image.width > ImageLimits::maximumResidentBytes / bytesPerPixel / image.height) {
      throw ImageDecodeError("too large: " + std::to_string(image.width) + " x " +
                             std::to_string(image.height));
    }
    const std::unique_ptr<heif_decoding_options, Release> options(heif_decoding_options_alloc());
    if (!options) throw std::bad_alloc();
    options->strict_decoding = 1;
    const heif_chroma chroma =
        wide ? (alpha ? heif_chroma_interleaved_RRGGBBAA_BE : heif_chroma_interleaved_RRGGBB_BE)
             : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
    heif_image* raw = nullptr;
    stop.throwIfStopped();
    const heif_error error =
        heif_decode_image(image.handle.get(), &raw, heif_colorspace_RGB, chroma, options.get());
    heif::Pixels pixels;
    pixels.image.reset(raw);
    stop.throwIfStopped();
    check(error);
    if (!raw || heif_image_get_chroma_format(raw) != chroma ||
        heif_image_get_width(raw, heif_channel_interleaved) != image.width ||
        heif_image_get_height(raw, heif_channel_interleaved) != image.height) {
      throw ImageDecodeError("the decoded image is not what the file declares");
    }
    pixels.bits = heif_image_get_bits_per_pixel_range(raw, heif_channel_interleaved);
    if (wide ? pixels.bits <= 8 || pixels.bits > 16 : pixels.bits != 8)
      throw ImageDecodeError("impossible depth");
    int stride = 0;
    const std::uint8_t* plane = heif_image_get_plane_readonly(raw, heif_channel_interleaved, &stride);
    if (!plane || stride < image.width * bytesPerPixel) throw ImageDecodeError("no pixels");

    pixels.origin = plane;
    pixels.stride = stride;
    pixels.width = image.width;
    pixels.height = image.height;
    pixels.samplesPerPixel = alpha ? 4 : 3;
    pixels.premultiplied = alpha && heif_image_handle_is_premultiplied_alpha(image.handle.get()) != 0;
    pixels.hdr = image.color.hdr;
    if (pixels.hdr && heif_image_has_content_light_level(raw)) {
      heif_content_light_level level{};
      heif_image_get_content_light_level(raw, &level);
      if (level.max_content_light_level > 0) pixels.peak = level.max_content_light_level;
    }
    decoded = std::move(pixels);
    decodedIndex = index;
    return *decoded;
  }

  HEIFInput file;
  heif_reader reader = HEIFInput::reader();
  StopToken stop;
  Container container = Container::heic;
  std::string meta;
  Context context;                ///< none for an AVIF file
  std::vector<heif_item_id> ids;  ///< of the top-level images
  std::optional<heif::Pixels> decoded;
  std::size_t decodedIndex = 0;
};

HEICSource::HEICSource(const ImageInput& input, const StopToken& stop) {
  try {
    impl_ = std::make_unique<Impl>(input, stop);
  } catch (const ImageDecodeError&) {
    stop.throwIfStopped();
    throw;
  }
}
HEICSource::~HEICSource() = default;

Container HEICSource::container() const {
  return impl_->container;
}

std::size_t HEICSource::count() {
  return impl_->ids.size();
}

std::size_t HEICSource::primaryIndex() {
  heif_item_id primary = 0;
  if (!impl_->context) return 0;
  if (heif_context_get_primary_image_ID(impl_->context.get(), &primary).code != heif_error_Ok) return 0;
  const auto found = std::find(impl_->ids.begin(), impl_->ids.end(), primary);
  return found == impl_->ids.end() ? 0 : static_cast<std::size_t>(found - impl_->ids.begin());
}

ImageProperties HEICSource::properties(std::size_t index) {
  return impl_->image(index).properties;
}

void HEICSource::verify(std::size_t index) {
  impl_->decode(index);
}

namespace {

/// What takes an upright image back: the two quarter turns undo each other, the other six themselves.
int inverse(int orientation) {
  return orientation == 6 ? 8 : orientation == 8 ? 6 : orientation;
}

/// The rows of the stored image, of either depth.
class StoredRows {
 public:
  StoredRows(const heif::Pixels& upright, int orientation, const StopToken& stop)
      : stop_(stop), stored_(upright, inverse(orientation)), converter_(upright) {}
  std::int64_t width() const { return stored_.width(); }
  std::int64_t height() const { return stored_.height(); }
  heif::RowConverter& converter() { return converter_; }
  std::span<const std::uint8_t> next() {
    stop_.throwIfStopped();
    if (next_ >= height()) throw ImageDecodeError("no more rows");
    return stored_.row(next_++);
  }
  void skip(std::int64_t count) { next_ += count; }

 private:
  const StopToken& stop_;
  heif::TurnedRows stored_;
  heif::RowConverter converter_;
  std::int64_t next_ = 0;
};

class HEICRows final : public RowReader {
 public:
  HEICRows(const heif::Pixels& upright, int orientation, const StopToken& stop)
      : rows_(upright, orientation, stop) {}
  std::int64_t width() const override { return rows_.width(); }
  std::int64_t height() const override { return rows_.height(); }
  void read(std::span<std::uint8_t> row) override { rows_.converter().premultiplied8(rows_.next(), row); }
  void skip(std::int64_t count) override { rows_.skip(count); }

 private:
  StoredRows rows_;
};

class HEICDeepRows final : public DeepRowReader {
 public:
  HEICDeepRows(const heif::Pixels& upright, int orientation, const StopToken& stop)
      : rows_(upright, orientation, stop) {}
  std::int64_t width() const override { return rows_.width(); }
  std::int64_t height() const override { return rows_.height(); }
  void read(std::span<std::uint16_t> row) override { rows_.converter().straight16(rows_.next(), row); }

 private:
  StoredRows rows_;
};

}  // namespace

std::unique_ptr<RowReader> HEICSource::rows(std::size_t index, std::int64_t) {
  const int orientation = impl_->image(index).properties.orientation.value_or(1);
  return std::make_unique<HEICRows>(impl_->decode(index), orientation, impl_->stop);
}

std::unique_ptr<DeepRowReader> HEICSource::deepRows(std::size_t index) {
  const int orientation = impl_->image(index).properties.orientation.value_or(1);
  return std::make_unique<HEICDeepRows>(impl_->decode(index), orientation, impl_->stop);
}

void HEICSource::writeUprightPNG(std::size_t index, Descriptor png) {
  const ImageProperties properties = impl_->image(index).properties;
  const heif::Pixels& pixels = impl_->decode(index);
  PNGWriter::Options options;
  options.width = pixels.width;
  options.height = pixels.height;
  options.hasAlpha = properties.hasAlpha;
  options.bitsPerSample = properties.bitsPerSample;
  options.color = properties.color;
  PNGWriter writer(std::move(png), options);
  heif::RowConverter converter(pixels);
  for (std::int64_t y = 0; y < pixels.height; ++y) {
    impl_->stop.throwIfStopped();
    writer.writeStraightRow(converter.straight(pixels.row(y)));
  }
  writer.finish();
}

}  // namespace tidewell
