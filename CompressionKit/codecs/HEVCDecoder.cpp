// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEVCDecoder.h"

#include <libde265/de265.h>
#include <libheif/heif.h>
#include <libheif/heif_plugin.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace tidewell::hevc {
namespace {

struct Release {
  void operator()(heif_image* image) const { heif_image_release(image); }
  void operator()(heif_color_profile_nclx* profile) const { heif_nclx_color_profile_free(profile); }
};
using Image = std::unique_ptr<heif_image, Release>;

heif_error success() {
  return {heif_error_Ok, heif_suberror_Unspecified, "Success"};
}

/// `message` must live for ever.
heif_error failure(const char* message) {
  return {heif_error_Decoder_plugin_error, heif_suberror_Unspecified, message};
}

bool isOK(const heif_error& error) {
  return error.code == heif_error_Ok;
}

/// Warnings that mean missing or broken pixels. Others are about threads or metadata.
bool meansDamage(de265_error warning) {
  switch (warning) {
    case DE265_WARNING_WARNING_BUFFER_FULL:
    case DE265_WARNING_PREMATURE_END_OF_SLICE_SEGMENT:
    case DE265_WARNING_INCORRECT_ENTRY_POINT_OFFSET:
    case DE265_WARNING_CTB_OUTSIDE_IMAGE_AREA:
    case DE265_WARNING_SPS_HEADER_INVALID:
    case DE265_WARNING_PPS_HEADER_INVALID:
    case DE265_WARNING_SLICEHEADER_INVALID:
    case DE265_WARNING_NONEXISTING_PPS_REFERENCED:
    case DE265_WARNING_NONEXISTING_SPS_REFERENCED:
    case DE265_WARNING_NONEXISTING_REFERENCE_PICTURE_ACCESSED:
    case DE265_WARNING_EOSS_BIT_NOT_SET:
    case DE265_WARNING_SLICE_SEGMENT_ADDRESS_INVALID:
    case DE265_WARNING_DEPENDENT_SLICE_WITH_ADDRESS_ZERO:
    case DE265_WARNING_CANNOT_APPLY_SAO_OUT_OF_MEMORY:
    case DE265_WARNING_PCM_BITDEPTH_TOO_LARGE:
    case DE265_WARNING_INVALID_SLICE_HEADER_INDEX_ACCESS:
      return true;
    default:
      return false;
  }
}

/// Planes of zeros: what no slice covers must not show old memory.
int allocate(de265_decoder_context*, de265_image_spec* spec, de265_image* image, void*) {
  const de265_chroma chroma = de265_get_chroma_format(image);
  for (int channel = 0; channel < (chroma == de265_chroma_mono ? 1 : 3); ++channel) {
    const bool halfWidth = channel > 0 && chroma != de265_chroma_444;
    const bool halfHeight = channel > 0 && chroma == de265_chroma_420;
    const auto width = static_cast<std::size_t>(halfWidth ? (spec->width + 1) / 2 : spec->width);
    const auto height = static_cast<std::size_t>(halfHeight ? (spec->height + 1) / 2 : spec->height);
    const std::size_t sampleBytes = de265_get_bits_per_pixel(image, channel) > 8 ? 2 : 1;
    const std::size_t stride = (width * sampleBytes + 63) / 64 * 64;
    const std::size_t size = stride * height + 64;  // vector code may read beyond the last sample
    void* plane = std::aligned_alloc(64, size);
    if (!plane) return 0;
    std::memset(plane, 0, size);
    de265_set_image_plane(image, channel, plane, static_cast<int>(stride), plane);
  }
  return 1;
}

void release(de265_decoder_context*, de265_image* image, void*) {
  for (int channel = 0; channel < 3; ++channel) {
    std::free(de265_get_image_plane_user_data(image, channel));
    de265_set_image_plane(image, channel, nullptr, 0, nullptr);
  }
}

/// One picture's decoder, as libheif holds it.
struct Decoder {
  Decoder() = default;
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  ~Decoder() {
    if (context) de265_free_decoder(context);
  }

  de265_decoder_context* context = nullptr;
  bool delivered = false;
  std::uintptr_t userData = 0;  ///< libheif's mark of the picture
};

heif_error newDecoder(void** decoder) {
  auto result = std::unique_ptr<Decoder>(new (std::nothrow) Decoder);
  if (!result) return failure("no memory");
  result->context = de265_new_decoder();
  if (!result->context) return failure("no decoder");
  static de265_image_allocation allocation = {allocate, release};
  de265_set_image_allocation_functions(result->context, &allocation, nullptr);
  de265_set_parameter_bool(result->context, DE265_DECODER_PARAM_SUPPRESS_FAULTY_PICTURES, 1);
  // No threads of its own: those miss the end of a stream that is cut off. Tiles are decoded at once.
  *decoder = result.release();
  return success();
}

/// Units, each behind its length in four bytes.
heif_error pushData(void* decoder, const void* data, std::size_t size) {
  de265_decoder_context* const context = static_cast<Decoder*>(decoder)->context;
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (size > 0) {
    std::size_t length = 0;
    for (int i = 0; i < 4 && size > 0; ++i, --size) length = length << 8 | *bytes++;
    if (length > size) return failure("stream cut off");
    if (length > 0 && !de265_isOK(de265_push_NAL(context, bytes, static_cast<int>(length), 0, nullptr))) {
      return failure("stream not accepted");
    }
    bytes += length;
    size -= length;
  }
  return success();
}

heif_error copyPlane(const de265_image* from, int channel, heif_image* to) {
  constexpr std::array channels = {heif_channel_Y, heif_channel_Cb, heif_channel_Cr};
  const int width = de265_get_image_width(from, channel), height = de265_get_image_height(from, channel);
  const int bits = de265_get_bits_per_pixel(from, channel);
  const heif_channel target = channels[static_cast<std::size_t>(channel)];
  if (width < 1 || height < 1) return failure("empty picture");
  const heif_error error = heif_image_add_plane(to, target, width, height, bits);
  if (!isOK(error)) return error;
  int fromStride = 0, toStride = 0;
  const std::uint8_t* source = de265_get_image_plane(from, channel, &fromStride);
  std::uint8_t* plane = heif_image_get_plane(to, target, &toStride);
  if (!source || !plane) return failure("no memory");
  const std::size_t bytes = static_cast<std::size_t>(width) * (bits > 8 ? 2 : 1);
  for (std::ptrdiff_t y = 0; y < height; ++y)
    std::memcpy(plane + y * toStride, source + y * fromStride, bytes);
  return success();
}

heif_error copyPicture(const de265_image* from, Image& to) {
  const de265_chroma chroma = de265_get_chroma_format(from);
  const bool mono = chroma == de265_chroma_mono;
  heif_image* raw = nullptr;
  heif_error error = heif_image_create(de265_get_image_width(from, 0), de265_get_image_height(from, 0),
                                       mono ? heif_colorspace_monochrome : heif_colorspace_YCbCr,
                                       static_cast<heif_chroma>(chroma), &raw);  // the same numbers
  if (!isOK(error)) return error;
  to.reset(raw);
  for (int channel = 0; channel < (mono ? 1 : 3); ++channel) {
    error = copyPlane(from, channel, raw);
    if (!isOK(error)) return error;
  }
  // What the stream itself says of its colours; a "colr" box has the last word.
  const std::unique_ptr<heif_color_profile_nclx, Release> colors(heif_nclx_color_profile_alloc());
  if (!colors) return failure("no memory");
  const auto code = [](int value) { return static_cast<std::uint16_t>(value); };
  heif_nclx_color_profile_set_color_primaries(colors.get(), code(de265_get_image_colour_primaries(from)));
  heif_nclx_color_profile_set_transfer_characteristics(colors.get(),
                                                       code(de265_get_image_transfer_characteristics(from)));
  heif_nclx_color_profile_set_matrix_coefficients(colors.get(),
                                                  code(de265_get_image_matrix_coefficients(from)));
  colors->full_range_flag = de265_get_image_full_range_flag(from) != 0 ? 1 : 0;
  return heif_image_set_nclx_color_profile(raw, colors.get());
}

heif_error decodeImage(void* decoder, heif_image** result) {
  de265_decoder_context* const context = static_cast<Decoder*>(decoder)->context;
  Image image;
  *result = nullptr;
  if (!de265_isOK(de265_flush_data(context))) return failure("stream not accepted");
  for (int more = 1; more != 0;) {
    more = 0;
    if (!de265_isOK(de265_decode(context, &more))) return failure("broken stream");
    const de265_image* picture = de265_get_next_picture(context);
    if (!picture) continue;
    if (image) return failure("more than one picture");
    const heif_error error = copyPicture(picture, image);
    de265_release_next_picture(context);
    if (!isOK(error)) return error;
  }
  while (const de265_error warning = de265_get_warning(context)) {
    if (meansDamage(warning)) return failure(de265_get_error_text(warning));
  }
  if (!image) return failure("no sound picture");
  *result = image.release();
  return success();
}

}  // namespace

const heif_decoder_plugin& strictDecoder() {
  static const heif_decoder_plugin plugin = [] {
    heif_decoder_plugin functions{};
    functions.plugin_api_version = 3;
    functions.get_plugin_name = [] { return "libde265, strict"; };
    functions.does_support_format = [](heif_compression_format format) {
      return format == heif_compression_HEVC ? 1000 : 0;  // above every other
    };
    functions.new_decoder = newDecoder;
    functions.free_decoder = [](void* decoder) { delete static_cast<Decoder*>(decoder); };
    functions.push_data = pushData;
    functions.decode_image = decodeImage;
    functions.set_strict_decoding = [](void*, int) {};
    functions.id_name = "tidewell-hevc";
#if LIBHEIF_HAVE_VERSION(1, 21, 0)  // takes no older plugins; Debian 12 has 1.15
    functions.plugin_api_version = 5;
    functions.minimum_required_libheif_version = LIBHEIF_MAKE_VERSION(1, 21, 0);
    functions.does_support_format2 = [](const heif_decoder_plugin_compressed_format_description* described) {
      return described->format == heif_compression_HEVC ? 1000 : 0;
    };
    functions.new_decoder2 = [](void** decoder, const heif_decoder_plugin_options*) {
      return newDecoder(decoder);
    };
    functions.push_data2 = [](void* decoder, const void* data, std::size_t size, std::uintptr_t userData) {
      static_cast<Decoder*>(decoder)->userData = userData;
      return pushData(decoder, data, size);
    };
    functions.flush_data = [](void*) { return success(); };  // done before decoding
    functions.decode_next_image2 = [](void* decoder, heif_image** image, std::uintptr_t* userData,
                                      const heif_security_limits*) {
      auto& state = *static_cast<Decoder*>(decoder);
      *image = nullptr;
      if (std::exchange(state.delivered, true)) return success();  // there is one picture only
      if (userData) *userData = state.userData;
      return decodeImage(decoder, image);
    };
#endif
    return functions;
  }();
  return plugin;
}

}  // namespace tidewell::hevc
