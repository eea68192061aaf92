// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Images that look real to an encoder, made row by row, so that a hundred megapixels cost no memory.
/// The same arguments always make the same pixels.
namespace tidewell::samples {

/// A landscape: sky, ridges with crisp edges, natural noise at every scale, soft lights, sensor grain.
class Photo {
 public:
  Photo(std::int64_t width, std::int64_t height, std::uint32_t seed);
  /// Row `y` as width × 3 bytes R, G, B; rows may be asked for in any order.
  void row(std::int64_t y, std::uint8_t* rgb) const;

 private:
  struct Light {
    double x, y, radius, red, green, blue;
  };
  std::int64_t width_, height_;
  std::uint32_t seed_;
  std::vector<std::vector<double>> ridges_;  ///< per ridge: its top edge in pixels from above, by column
  std::vector<Light> lights_;
};

struct JPEGOptions {
  int quality = 92;
  bool fullChroma = false;  ///< 4:4:4 instead of 4:2:0
  bool progressive = false;
  int orientation = 0;   ///< an Exif orientation, 0 for none
  std::string icc = {};  ///< an ICC profile to embed, empty for none
};

void writePhotoJPEG(const std::string& path, std::int64_t width, std::int64_t height, std::uint32_t seed,
                    const JPEGOptions& options = {});
void writePhotoPNG(const std::string& path, std::int64_t width, std::int64_t height, std::uint32_t seed);
/// Windows, panels, lines of small text, one picture: what people take screenshots of.
void writeScreenshotPNG(const std::string& path, std::int64_t width, std::int64_t height, std::uint32_t seed);
/// A round button with a soft shadow on transparent ground.
void writeIconPNG(const std::string& path, std::int64_t size);
/// Shapes moving over a gradient; 10 frames a second, looping for ever.
void writeAnimationGIF(const std::string& path, int width, int height, int frames, std::uint32_t seed);

}  // namespace tidewell::samples
