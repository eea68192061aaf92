// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/HEICColor.h"

#include <array>
#include <memory>

#include "CompressionKit/codecs/PNGWriter.h"

namespace tidewell::heif {
namespace {

struct Primaries {
  int code;  ///< ColourPrimaries of ITU-T H.273
  const char* name;
  color::Chromaticities chromaticities;
};

constexpr std::array<Primaries, 7> knownPrimaries = {{
    {1, "ITU-R BT.709", color::bt709},
    {5, "ITU-R BT.601 625", {0.3127, 0.3290, 0.640, 0.330, 0.290, 0.600, 0.150, 0.060}},
    {6, "ITU-R BT.601 525", {0.3127, 0.3290, 0.630, 0.340, 0.310, 0.595, 0.155, 0.070}},
    {7, "SMPTE 240M", {0.3127, 0.3290, 0.630, 0.340, 0.310, 0.595, 0.155, 0.070}},
    {9, "ITU-R BT.2020", {0.3127, 0.3290, 0.708, 0.292, 0.170, 0.797, 0.131, 0.046}},
    {11, "DCI P3", {0.314, 0.351, 0.680, 0.320, 0.265, 0.690, 0.150, 0.060}},
    {12, "Display P3", color::displayP3},
}};

/// Those of sRGB for a code without a meaning ("unspecified", reserved).
const Primaries& primariesOf(int code) {
  for (const Primaries& primaries : knownPrimaries) {
    if (primaries.code == code) return primaries;
  }
  return knownPrimaries.front();
}

/// The power of a pure power curve, for the codes of TransferCharacteristics that name one. The video curves
/// (BT.709, BT.601, BT.2020) describe cameras; every viewer shows pictures tagged so with the curve of sRGB.
std::optional<double> gammaOf(int transfer) {
  switch (transfer) {
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_M:
      return 2.2;
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_B_G:
      return 2.8;
    case heif_transfer_characteristic_linear:
      return 1.0;
    case heif_transfer_characteristic_SMPTE_ST_428_1:
      return 2.6;
    default:
      return std::nullopt;
  }
}

std::string iccOf(const heif_image_handle* handle) {
  const std::size_t size = heif_image_handle_get_raw_color_profile_size(handle);
  if (size > static_cast<std::size_t>(ImageLimits::maximumMetadataBytes)) {
    throw ImageDecodeError("colour profile of " + std::to_string(size) + " bytes");
  }
  std::string icc(size, '\0');
  if (size == 0 || heif_image_handle_get_raw_color_profile(handle, icc.data()).code != heif_error_Ok)
    return {};
  if (color::isRGBProfile(icc)) {
    if (isAllowedInPNG(icc)) return icc;
    std::string mended = color::rewritten(icc);
    return mended.empty() ? icc : mended;
  }
  return color::rgbProfileOfGrey(icc);  // our samples are R, G, B
}

}  // namespace

Color colorOf(const heif_image_handle* handle, const std::optional<hevc::Sequence::Colors>& stream) {
  heif_color_profile_nclx* raw = nullptr;
  const bool known = heif_image_handle_get_nclx_color_profile(handle, &raw).code == heif_error_Ok;
  std::unique_ptr<heif_color_profile_nclx, void (*)(heif_color_profile_nclx*)>
      nclx(  // may come with an error too
          raw, &heif_nclx_color_profile_free);
  if (!known) nclx.reset();

  Color color;
  std::string icc = iccOf(handle);
  int transfer = heif_transfer_characteristic_unspecified, code = heif_color_primaries_unspecified;
  if (nclx) {
    transfer = nclx->transfer_characteristics;
    code = nclx->color_primaries;
  } else if (stream && icc.empty()) {
    transfer = stream->transfer;
    code = stream->primaries;
  }
  const Primaries& primaries = primariesOf(code);
  const bool pq = transfer == heif_transfer_characteristic_ITU_R_BT_2100_0_PQ;
  if (pq || transfer == heif_transfer_characteristic_ITU_R_BT_2100_0_HLG) {
    color.hdr =
        Color::HDR{pq ? StandardRange::Transfer::pq : StandardRange::Transfer::hlg, primaries.chromaticities};
    color.tag.icc = StandardRange::outputProfile();
  } else if (!icc.empty()) {
    color.tag.icc = std::move(icc);
  } else if (const auto gamma = gammaOf(transfer); gamma || primaries.code != 1) {
    const std::string curve = gamma ? ", gamma " + std::to_string(*gamma).substr(0, 3) : "";
    color.tag.icc = color::makeRGBProfile(primaries.name + curve, primaries.chromaticities, gamma);
  }
  if (color.tag.icc.empty()) {
    color.tag.srgb = true;
    color.colorSpaceName = sRGBName;
  } else {
    color.profileName = color::profileDescription(color.tag.icc);
  }
  return color;
}

}  // namespace tidewell::heif
