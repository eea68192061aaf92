// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <cmath>

#include "benchmarks/SampleImages.h"

namespace tidewell::samples {
namespace {

/// A lattice value in -1 … 1 from its place (a 32-bit mix as in MurmurHash3's finaliser).
double lattice(std::uint32_t seed, std::int64_t x, std::int64_t y) {
  std::uint32_t h =
      seed ^ (static_cast<std::uint32_t>(x) * 0x9E3779B1U) ^ (static_cast<std::uint32_t>(y) * 0x85EBCA77U);
  h ^= h >> 16;
  h *= 0x85EBCA6BU;
  h ^= h >> 13;
  h *= 0xC2B2AE35U;
  h ^= h >> 16;
  return static_cast<double>(h) / 2147483647.5 - 1.0;
}

double smooth(double t) {
  return t * t * (3 - 2 * t);
}

/// Adds one octave of smooth noise with lattice distance `cell` to a row.
void addOctave(std::vector<float>& row, std::uint32_t seed, double y, double cell, double amplitude) {
  const auto cellY = static_cast<std::int64_t>(std::floor(y / cell));
  const double ty = smooth(y / cell - static_cast<double>(cellY));
  const auto width = static_cast<std::int64_t>(row.size());
  const auto value = [&](std::int64_t cx) {
    return (lattice(seed, cx, cellY) * (1 - ty) + lattice(seed, cx, cellY + 1) * ty) * amplitude;
  };
  std::int64_t x = 0;
  for (std::int64_t cx = 0; x < width; ++cx) {
    const double left = value(cx), right = value(cx + 1);
    const double start = static_cast<double>(cx) * cell;
    for (; x < width && static_cast<double>(x) < start + cell; ++x) {
      const double t = smooth((static_cast<double>(x) - start) / cell);
      row[static_cast<std::size_t>(x)] += static_cast<float>(left * (1 - t) + right * t);
    }
  }
}

/// Noise whose octaves lose strength with their size, as natural scenes do.
std::vector<float> naturalRow(std::int64_t width, std::int64_t y, std::uint32_t seed, double largest,
                              double smallest, double amplitude) {
  std::vector<float> row(static_cast<std::size_t>(width), 0.0F);
  for (double cell = largest; cell >= smallest; cell /= 2) {
    addOctave(row, seed++, static_cast<double>(y), cell, amplitude);
    amplitude *= 0.7;
  }
  return row;
}

std::uint8_t byte(double value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0) + 0.5);
}

constexpr int ridgeCount = 4;

}  // namespace

Photo::Photo(std::int64_t width, std::int64_t height, std::uint32_t seed)
    : width_(width), height_(height), seed_(seed) {
  const auto w = static_cast<double>(width), h = static_cast<double>(height);
  for (int ridge = 0; ridge < ridgeCount; ++ridge) {
    const auto noise =
        naturalRow(width, ridge * 7919, seed + 100U + static_cast<std::uint32_t>(ridge), w / 3, 2, 1);
    std::vector<double> top;
    top.reserve(noise.size());
    for (const float value : noise)
      top.push_back(h * (0.35 + 0.15 * ridge) + h * 0.06 * static_cast<double>(value));
    ridges_.push_back(std::move(top));
  }
  for (int i = 0; i < 12; ++i) {
    const auto random = [&](int n) { return 0.5 + 0.5 * lattice(seed + 7, i, n); };
    lights_.push_back({.x = w * random(0),
                       .y = h * random(1),
                       .radius = std::min(w, h) * (0.02 + 0.08 * random(2)),
                       .red = 70 * random(3),
                       .green = 60 * random(4),
                       .blue = 40 * random(5)});
  }
}

void Photo::row(std::int64_t y, std::uint8_t* rgb) const {
  const auto w = static_cast<double>(width_), h = static_cast<double>(height_), fy = static_cast<double>(y);
  const auto luma = naturalRow(width_, y, seed_, w / 6, 2, 26);
  const auto warm = naturalRow(width_, y, seed_ + 50, w / 5, 40, 12);
  for (std::int64_t x = 0; x < width_; ++x) {
    const auto i = static_cast<std::size_t>(x);
    const double down = fy / h;
    double r = 110 + 90 * down, g = 150 + 60 * down, b = 215 - 20 * down;  // sky, paler near the horizon
    double texture = 0.25;
    for (int ridge = 0; ridge < ridgeCount; ++ridge) {
      const double cover = std::clamp(fy - ridges_[static_cast<std::size_t>(ridge)][i] + 0.5, 0.0, 1.0);
      const double near = static_cast<double>(ridge + 1) / ridgeCount;
      r += cover * (120 - 70 * near - r);
      g += cover * (135 - 55 * near - g);
      b += cover * (140 - 100 * near - b);
      texture += cover * (0.4 + 0.6 * near - texture);
    }
    for (const auto& light : lights_) {
      const double dx = static_cast<double>(x) - light.x, dy = fy - light.y;
      const double distance = dx * dx + dy * dy, radius = light.radius * light.radius;
      if (distance > radius) continue;
      const double strength = 1 - smooth(distance / radius) * 0.8;
      r += light.red * strength;
      g += light.green * strength;
      b += light.blue * strength;
    }
    const double noise = static_cast<double>(luma[i]) * texture,
                 tint = static_cast<double>(warm[i]) * texture;
    const double grain = 2.2 * lattice(seed_ + 999, x, y);
    rgb[3 * x] = byte(r + noise + tint + grain);
    rgb[3 * x + 1] = byte(g + noise + grain + 0.8 * lattice(seed_ + 998, x, y));
    rgb[3 * x + 2] = byte(b + noise - tint + grain);
  }
}

}  // namespace tidewell::samples
