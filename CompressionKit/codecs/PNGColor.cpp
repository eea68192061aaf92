// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/PNGColor.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/codecs/PNGBytes.h"

namespace tidewell {
namespace {

constexpr double sRGBGamma = 0.45455;

bool near(double a, double b, double tolerance) {
  return std::abs(a - b) <= tolerance;
}

std::string decimal(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

/// gAMA and cHRM: the colour space of images whose maker did not embed a profile.
void describeCalibration(png_structp png, png_infop info, ImageProperties& properties) {
  double gamma = 0;
  std::array<double, 8> xy{};
  const bool hasGamma = png_get_gAMA(png, info, &gamma) != 0 && gamma > 0;
  const bool hasPrimaries =
      png_get_cHRM(png, info, &xy[0], &xy[1], &xy[2], &xy[3], &xy[4], &xy[5], &xy[6], &xy[7]) != 0;
  const bool sRGBCurve = !hasGamma || near(gamma, sRGBGamma, 0.006);
  const bool sRGBPrimaries = !hasPrimaries || std::ranges::equal(xy, color::bt709, [](double a, double b) {
    return near(a, b, 0.003);
  });
  if (sRGBCurve && sRGBPrimaries) {
    if (hasPrimaries) properties.colorSpaceName = sRGBName;
    return;
  }
  // A name of its own for each, so that losing the calibration is a change of colours.
  std::string name = sRGBCurve ? "RGB" : std::string(gammaNamePrefix) + decimal(1 / gamma);
  if (!sRGBPrimaries) {
    name = "Calibrated " + name + " primaries";
    for (const double value : xy) name += " " + decimal(value);
  }
  properties.colorSpaceName = name;
  properties.color.srgb = false;
  if (hasGamma) properties.color.gamma = gamma;
  if (hasPrimaries) properties.color.chromaticity = xy;
}

/// The code points (ITU-T H.273) of a cICP chunk: primaries, transfer, matrix, range.
std::string codePoints(png_structp png, png_infop info) {
  png_unknown_chunkp chunks = nullptr;
  const int count = png_get_unknown_chunks(png, info, &chunks);
  for (int i = 0; i < count; ++i) {
    if (std::memcmp(chunks[i].name, codePointsChunk, 4) == 0 && chunks[i].size == 4) {
      return {reinterpret_cast<const char*>(chunks[i].data), 4};
    }
  }
  return {};
}

void describeCodePoints(const std::string& points, ImageProperties& properties) {
  constexpr char bt709 = 1, displayP3 = 12, sRGBTransfer = 13;
  properties.codePoints = points;
  properties.colorSpaceName = sRGBName;
  if (points[1] == sRGBTransfer && points[0] == bt709) return;
  properties.color.srgb = false;
  if (points[1] == sRGBTransfer && points[0] == displayP3) {
    properties.colorSpaceName = "Display P3";
    properties.color.icc = color::makeRGBProfile("Display P3", color::displayP3);
    return;
  }
  properties.color.codePoints = points;
  properties.colorSpaceName = "Code points";
  for (const char value : points)
    *properties.colorSpaceName += " " + std::to_string(static_cast<unsigned char>(value));
}

/// The profile of an iCCP chunk: name, zero, method, compressed bytes. libpng refuses profiles that others
/// apply, for an odd length or rendering intent; empty for what cannot be read by anybody.
std::string profileIn(std::string_view iCCP) {
  const std::size_t name = iCCP.find('\0');
  if (name == std::string_view::npos || name + 2 > iCCP.size() || iCCP[name + 1] != 0) return {};
  iCCP.remove_prefix(name + 2);
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) throw std::bad_alloc();
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(iCCP.data()));
  stream.avail_in = static_cast<uInt>(iCCP.size());
  std::string profile;
  int result = Z_OK;
  while (result == Z_OK && std::ssize(profile) < ImageLimits::maximumMetadataBytes) {
    constexpr std::size_t step = 1 << 16;
    profile.resize(profile.size() + step);
    stream.next_out = reinterpret_cast<Bytef*>(profile.data() + profile.size() - step);
    stream.avail_out = step;
    result = inflate(&stream, Z_NO_FLUSH);
    profile.resize(profile.size() - stream.avail_out);
  }
  inflateEnd(&stream);
  return result == Z_STREAM_END ? profile : std::string();
}

}  // namespace

std::optional<std::string> chunkData(const ImageInput& input, std::string_view wanted, const StopToken& stop,
                                     std::string_view last) {
  auto offset = static_cast<std::int64_t>(pngSignature.size());
  for (char header[8]; input.readAt(offset, header, sizeof header) == sizeof header;) {
    stop.throwIfStopped();
    const std::uint32_t length = bigEndian32(std::string_view(header, 8), 0);
    const std::string_view type(header + 4, 4);
    if (type == last) break;
    if (type == wanted && length <= ImageLimits::maximumMetadataBytes) {
      std::string data(length, '\0');
      if (input.readAt(offset + 8, data.data(), length) != static_cast<ssize_t>(length)) break;
      return data;
    }
    offset += static_cast<std::int64_t>(length + pngChunkOverhead);
  }
  return std::nullopt;
}

void describePNGColor(png_structp png, png_infop info, const ImageInput& input, const StopToken& stop,
                      ImageProperties& properties) {
  properties.colorSpaceName = untaggedName;
  properties.color.srgb = true;
  if (const std::string points = codePoints(png, info); !points.empty()) {
    describeCodePoints(points, properties);
  } else {
    const auto iCCP = chunkData(input, "iCCP", stop, "IDAT");
    if (iCCP) properties.describeProfile(profileIn(*iCCP));
    if (properties.profileName) return;
    if (png_get_valid(png, info, PNG_INFO_sRGB) != 0) {
      properties.colorSpaceName = sRGBName;
    } else {
      describeCalibration(png, info, properties);
    }
  }
  properties.isTagged = properties.colorSpaceName != untaggedName;
}

}  // namespace tidewell
