// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/ColorProfile.h"

#include <lcms2.h>
#include <utf8proc.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "CompressionKit/codecs/PNGBytes.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Text.h"

namespace tidewell::color {
namespace {

struct Close {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
  void operator()(cmsMLU* text) const { cmsMLUfree(text); }
};
using Profile = std::unique_ptr<void, Close>;
struct DeleteTransform {
  void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using Transform = std::unique_ptr<void, DeleteTransform>;
using Curve = std::unique_ptr<cmsToneCurve, Close>;
using Text = std::unique_ptr<cmsMLU, Close>;

/// lcms allocates for as many translations as a text of the profile claims to have.
bool claimsTooMuch(std::string_view icc) {
  constexpr std::size_t table = 132, entrySize = 12;
  const std::size_t tags = icc.size() < table ? 0 : bigEndian32(icc, table - 4);
  for (std::size_t entry = table, i = 0; i < tags && entry + entrySize <= icc.size();
       ++i, entry += entrySize) {
    const std::size_t offset = bigEndian32(icc, entry + 4);
    if (offset + 12 <= icc.size() && icc.substr(offset, 4) == "mluc" &&
        bigEndian32(icc, offset + 8) > icc.size() / entrySize) {
      return true;
    }
  }
  return false;
}

Profile opened(std::string_view icc) {
  if (claimsTooMuch(icc)) return nullptr;
  return Profile(cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())));
}

bool setText(cmsHPROFILE profile, cmsTagSignature tag, const std::string& value) {
  const Text text(cmsMLUalloc(nullptr, 1));
  return text && cmsMLUsetASCII(text.get(), "en", "US", value.c_str()) &&
         cmsWriteTag(profile, tag, text.get());
}

std::string saved(cmsHPROFILE profile) {
  cmsUInt32Number size = 0;
  if (!cmsSaveProfileToMem(profile, nullptr, &size)) return {};
  std::string bytes(size, '\0');
  if (!cmsSaveProfileToMem(profile, bytes.data(), &size)) return {};
  return bytes;
}

std::string serialised(const std::string& description, const Chromaticities& c, cmsToneCurve* curve) {
  if (!curve) return {};
  const cmsCIExyY white{c[0], c[1], 1};
  const cmsCIExyYTRIPLE primaries{{c[2], c[3], 1}, {c[4], c[5], 1}, {c[6], c[7], 1}};
  cmsToneCurve* curves[] = {curve, curve, curve};
  const Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
  if (!profile || !setText(profile.get(), cmsSigProfileDescriptionTag, description) ||
      !setText(profile.get(), cmsSigCopyrightTag, "CC0")) {
    return {};
  }
  std::string bytes = saved(profile.get());
  if (bytes.empty()) return {};
  // The library stamps the time of making into the header (bytes 24 to 35); ours has no such moment.
  static constexpr std::string_view fixedDate{"\x07\xD0\0\x01\0\x01\0\0\0\0\0\0", 12};
  return bytes.replace(24, fixedDate.size(), fixedDate);
}

}  // namespace

std::optional<std::string> profileDescription(std::string_view icc) {
  const Profile profile = opened(icc);
  if (!profile) return std::nullopt;
  const auto read = [&](wchar_t* buffer, cmsUInt32Number size) {
    return cmsGetProfileInfo(profile.get(), cmsInfoDescription, "en", "US", buffer, size);
  };
  const cmsUInt32Number size = read(nullptr, 0);
  std::wstring wide(size / sizeof(wchar_t) + 1, L'\0');
  read(wide.data(), size);
  std::string text;
  for (const wchar_t character : wide) {
    if (character == 0) break;
    std::array<utf8proc_uint8_t, 4> bytes{};
    const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(character), bytes.data());
    text.append(bytes.begin(), bytes.begin() + length);
  }
  // Without a description, a name that another profile does not share.
  if (text.empty()) return "Unnamed profile " + hash(icc).substr(0, 16);
  return repairedUTF8(text);  // a hostile profile may hold halves of surrogate pairs
}

bool isRGBProfile(std::string_view icc) {
  const Profile profile = opened(icc);
  return profile && cmsGetColorSpace(profile.get()) == cmsSigRgbData;
}

bool isSRGB(std::string_view icc) {
  const Profile profile = opened(icc), sRGB(cmsCreate_sRGBProfile());
  if (!profile || !sRGB || cmsGetColorSpace(profile.get()) != cmsSigRgbData) return false;
  // Colours tell the primaries, greys the white and the curves. The sRGB profiles that Debian packages have,
  // some with curves of few points, are off by up to 1.4 steps of 8 bits; a power of 2.2 by 6, in shadows,
  // and the nearest other gamuts by dozens.
  constexpr float tolerance = 3.0F / 255;
  std::vector<float> in;
  constexpr int steps = 8;
  for (int r = 0; r <= steps; ++r) {
    for (int g = 0; g <= steps; ++g) {
      for (int b = 0; b <= steps; ++b) {
        for (const int value : {r, g, b}) in.push_back(static_cast<float>(value) / steps);
      }
    }
  }
  for (int grey = 0; grey < 64; ++grey) in.insert(in.end(), 3, static_cast<float>(grey) / 255);  // shadows
  std::vector<float> out(in.size());
  for (const cmsUInt32Number intent : {INTENT_PERCEPTUAL, INTENT_RELATIVE_COLORIMETRIC}) {
    const Transform transform(cmsCreateTransform(profile.get(), TYPE_RGB_FLT, sRGB.get(), TYPE_RGB_FLT,
                                                 intent, cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE));
    if (!transform) return false;
    cmsDoTransform(transform.get(), in.data(), out.data(), static_cast<cmsUInt32Number>(in.size() / 3));
    for (std::size_t i = 0; i < in.size(); ++i) {
      if (!(std::abs(out[i] - in[i]) <= tolerance)) return false;
    }
  }
  return true;
}

bool convertToSRGB(std::string_view icc, std::span<std::uint8_t> pixels) {
  const Profile profile = opened(icc), sRGB(cmsCreate_sRGBProfile());
  if (!profile || !sRGB || cmsGetColorSpace(profile.get()) != cmsSigRgbData) return false;
  const Transform transform(cmsCreateTransform(profile.get(), TYPE_RGBA_8_PREMUL, sRGB.get(),
                                               TYPE_RGBA_8_PREMUL, INTENT_RELATIVE_COLORIMETRIC,
                                               cmsFLAGS_COPY_ALPHA | cmsFLAGS_BLACKPOINTCOMPENSATION));
  if (!transform) return false;
  constexpr std::size_t channels = 4;
  cmsDoTransform(transform.get(), pixels.data(), pixels.data(),
                 static_cast<cmsUInt32Number>(pixels.size() / channels));
  return true;
}

std::size_t countOutsideSRGB(std::string_view icc, std::span<float> pixels) {
  const Profile profile = opened(icc), sRGB(cmsCreate_sRGBProfile());
  if (!profile || !sRGB || cmsGetColorSpace(profile.get()) != cmsSigRgbData) return 0;
  // Between floating-point numbers nothing is clipped.
  const Transform transform(cmsCreateTransform(profile.get(), TYPE_RGB_FLT, sRGB.get(), TYPE_RGB_FLT,
                                               INTENT_RELATIVE_COLORIMETRIC, 0));
  if (!transform) return 0;
  constexpr std::size_t channels = 3;
  cmsDoTransform(transform.get(), pixels.data(), pixels.data(),
                 static_cast<cmsUInt32Number>(pixels.size() / channels));
  constexpr float slack = 5.0F / 255;
  std::size_t outside = 0;
  for (std::size_t i = 0; i + channels <= pixels.size(); i += channels) {
    const auto [least, most] = std::minmax({pixels[i], pixels[i + 1], pixels[i + 2]});
    if (least < -slack || most > 1 + slack) ++outside;
  }
  return outside;
}

std::string rewritten(std::string_view icc) {
  const Profile profile = opened(icc);
  if (!profile) return {};
  if (cmsGetHeaderRenderingIntent(profile.get()) > INTENT_ABSOLUTE_COLORIMETRIC) {
    cmsSetHeaderRenderingIntent(profile.get(), INTENT_PERCEPTUAL);
  }
  return saved(profile.get());
}

std::string makeRGBProfile(const std::string& description, const Chromaticities& chromaticities,
                           std::optional<double> gamma) {
  const double sRGBCurve[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  const Curve curve(gamma ? cmsBuildGamma(nullptr, *gamma)
                          : cmsBuildParametricToneCurve(nullptr, 4, sRGBCurve));
  return serialised(description, chromaticities, curve.get());
}

std::string rgbProfileOfGrey(std::string_view icc) {
  const Profile profile = opened(icc);
  if (!profile || cmsGetColorSpace(profile.get()) != cmsSigGrayData) return {};
  // Greys lie on the white axis, where the primaries do not matter.
  auto* curve = static_cast<cmsToneCurve*>(cmsReadTag(profile.get(), cmsSigGrayTRCTag));
  return serialised(profileDescription(icc).value_or("Grey"), bt709, curve);
}

}  // namespace tidewell::color
