// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/StandardRange.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace tidewell {
namespace {

constexpr double referenceWhite = 203;  // cd/m², ITU-R BT.2408
constexpr double nominalHLGPeak = 1000;

// SMPTE ST 2084, as repeated in ITU-R BT.2100 table 4.
constexpr double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
constexpr double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;

double lightOfPQ(double signal) {
  const double root = std::pow(signal, 1 / m2);
  return 10000 * std::pow(std::max(root - c1, 0.0) / (c2 - c3 * root), 1 / m1);
}

double pqOfLight(double light) {
  const double power = std::pow(std::max(light, 0.0) / 10000, m1);
  return std::pow((c1 + c2 * power) / (1 + c3 * power), m2);
}

/// ITU-R BT.2100 table 5: light at the scene, 0 to 1.
double sceneOfHLG(double signal) {
  constexpr double a = 0.17883277, b = 0.28466892, c = 0.55991073;
  return signal <= 0.5 ? signal * signal / 3 : (std::exp((signal - c) / a) + b) / 12;
}

}  // namespace

struct StandardRange::Transform {
  cmsHTRANSFORM handle = nullptr;
  ~Transform() {
    if (handle) cmsDeleteTransform(handle);
  }
};

StandardRange::StandardRange(Transfer transfer, const color::Chromaticities& primaries, int bits, double peak)
    : transfer_(transfer),
      peak_(transfer == Transfer::hlg ? nominalHLGPeak : std::clamp(peak, referenceWhite, 10000.0)),
      light_(std::size_t{1} << bits),
      gain_(4096),
      transform_(std::make_unique<Transform>()) {
  for (std::size_t code = 0; code < light_.size(); ++code) {
    const double signal = static_cast<double>(code) / static_cast<double>(light_.size() - 1);
    light_[code] = static_cast<float>(transfer == Transfer::pq ? lightOfPQ(signal) : sceneOfHLG(signal));
  }
  gain_[0] = 1;
  for (std::size_t step = 1; step < gain_.size(); ++step) {
    const double light = peak_ * static_cast<double>(step) / static_cast<double>(gain_.size() - 1);
    gain_[step] = static_cast<float>(rolledOff(light) / light);
  }
  const auto open = [](const std::string& icc) {
    return std::unique_ptr<void, cmsBool (*)(void*)>(
        cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size())), &cmsCloseProfile);
  };
  const auto source = open(color::makeRGBProfile("linear light", primaries, 1.0));
  const auto target = open(outputProfile());
  if (source && target) {
    transform_->handle = cmsCreateTransform(source.get(), TYPE_RGB_FLT, target.get(), TYPE_RGB_16,
                                            INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
  }
  if (!transform_->handle) throw std::invalid_argument("no conversion from these primaries");
}

StandardRange::~StandardRange() = default;

std::string StandardRange::outputProfile() {
  return color::makeRGBProfile("Display P3", color::displayP3);
}

/// The Hermite spline of ITU-R BT.2390, with black left at zero.
double StandardRange::rolledOff(double light) const {
  const double scale = pqOfLight(peak_);
  const double maximum = pqOfLight(referenceWhite) / scale;
  const double knee = 1.5 * maximum - 0.5;
  const double signal = std::min(pqOfLight(light) / scale, 1.0);
  if (signal < knee || knee >= 1) return std::min(light, referenceWhite);
  const double t = (signal - knee) / (1 - knee);
  const double t2 = t * t;
  const double t3 = t2 * t;
  const double mapped =
      (2 * t3 - 3 * t2 + 1) * knee + (t3 - 2 * t2 + t) * (1 - knee) + (-2 * t3 + 3 * t2) * maximum;
  return lightOfPQ(mapped * scale);
}

float StandardRange::gain(float light) const {
  const float position = light / static_cast<float>(peak_) * static_cast<float>(gain_.size() - 1);
  if (position >= static_cast<float>(gain_.size() - 1)) return static_cast<float>(referenceWhite) / light;
  const auto step = static_cast<std::size_t>(position);
  const float part = position - static_cast<float>(step);
  return gain_[step] + (gain_[step + 1] - gain_[step]) * part;
}

void StandardRange::convert(std::span<std::uint16_t> samples, std::size_t samplesPerPixel) {
  const std::size_t pixels = samples.size() / samplesPerPixel;
  linear_.resize(pixels * 3);
  converted_.resize(pixels * 3);
  for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
    const auto light = [&](std::size_t component) {
      const std::size_t code = samples[pixel * samplesPerPixel + component];
      return light_[std::min(code, light_.size() - 1)];
    };
    float red = light(0), green = light(1), blue = light(2);
    if (transfer_ == Transfer::hlg) {  // the display's part of the transfer, system gamma 1.2
      const float luminance = 0.2627F * red + 0.6780F * green + 0.0593F * blue;
      const float display = static_cast<float>(nominalHLGPeak) * std::pow(std::max(luminance, 0.0F), 0.2F);
      red *= display;
      green *= display;
      blue *= display;
    }
    const float factor = gain(std::max({red, green, blue})) / static_cast<float>(referenceWhite);
    linear_[pixel * 3] = red * factor;
    linear_[pixel * 3 + 1] = green * factor;
    linear_[pixel * 3 + 2] = blue * factor;
  }
  cmsDoTransform(transform_->handle, linear_.data(), converted_.data(), static_cast<cmsUInt32Number>(pixels));
  for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
    for (std::size_t component = 0; component < 3; ++component) {
      samples[pixel * samplesPerPixel + component] = converted_[pixel * 3 + component];
    }
  }
}

}  // namespace tidewell
