// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/GIFPalette.h"

#include <algorithm>
#include <memory>
#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/PNGBytes.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

constexpr std::size_t maximumCells = 8;
constexpr std::int64_t maximumCellSide = 640;
constexpr std::size_t maximumPaletteBytes = 768;

/// Frame `url` at exactly the cell's size. A frame of another shape, which an animation's canvas never has,
/// is brought to it by nearest pixels.
Bitmap cell(const URL& url, std::int64_t width, std::int64_t height, const StopToken& stop) {
  const auto source = ImageSource::open(url, stop);
  Bitmap image = views::thumbnail(*source, 0, std::max(width, height), false);
  if (image.width == width && image.height == height) return image;
  Bitmap scaled{
      .width = width, .height = height, .pixels = {}, .hasAlpha = image.hasAlpha, .color = image.color};
  scaled.pixels.resize(static_cast<std::size_t>(width * height) * 4);
  for (std::int64_t y = 0; y < height; ++y) {
    const auto from = image.row(y * image.height / height);
    const auto to = scaled.row(y);
    for (std::int64_t x = 0; x < width; ++x) {
      std::copy_n(from.begin() + x * image.width / width * 4, 4, to.begin() + x * 4);
    }
  }
  return scaled;
}

}  // namespace

std::vector<std::size_t> GIFPalette::sampledFrames(std::size_t count) {
  std::vector<std::size_t> indexes(std::min(count, maximumCells));
  for (std::size_t i = 1; i < indexes.size(); ++i) indexes[i] = i * (count - 1) / (indexes.size() - 1);
  return indexes;
}

URL GIFPalette::sample(const std::vector<URL>& frames, const URL& directory, const StopToken& stop) {
  if (frames.empty()) throw CompressionError::invalidImage();
  return decoding([&] {
    const ImageProperties first = ImageSource::open(frames.front(), stop)->properties(0);
    const std::vector<std::size_t> sampled = sampledFrames(frames.size());
    const double scale = std::min(
        static_cast<double>(maximumCellSide) / static_cast<double>(std::max(first.width, first.height)), 1.0);
    const auto reduced = [scale](std::int64_t side) {
      return std::max<std::int64_t>(1, static_cast<std::int64_t>(scale * static_cast<double>(side)));
    };
    const std::int64_t width = reduced(first.width), height = reduced(first.height);

    URL url = directory.appending("gif-colour-sample.png");
    PNGWriter writer(url, {.width = width,
                           .height = height * std::ssize(sampled),
                           .hasAlpha = true,
                           .bitsPerSample = 8,
                           .color = {}});
    // Cell 0 stands at the bottom, so the file's first rows are those of the last one.
    for (auto index = sampled.rbegin(); index != sampled.rend(); ++index) {
      const Bitmap image = cell(frames[*index], width, height, stop);
      for (std::int64_t y = 0; y < height; ++y) writer.writeRow(image.row(y));
    }
    writer.finish();
    return url;
  });
}

void GIFPalette::colourMap(const URL& palettePNG, const URL& destination) {
  const std::string data = files::read(palettePNG);
  if (data.size() < 20 || !data.starts_with(pngSignature)) throw CompressionError::invalidImage();
  for (std::size_t p = pngSignature.size(); p + pngChunkOverhead <= data.size();) {
    const std::size_t length = bigEndian32(data, p);
    if (length > data.size() - pngChunkOverhead - p) throw CompressionError::invalidImage();
    if (data.compare(p + 4, 4, "PLTE") == 0) {
      if (length < 1 || length > maximumPaletteBytes || length % 3 != 0)
        throw CompressionError::invalidImage();
      std::string text;
      for (std::size_t i = p + 8; i < p + 8 + length; ++i) {
        text += std::to_string(static_cast<unsigned char>(data[i]));
        text += (i - p - 8) % 3 == 2 ? '\n' : ' ';
      }
      files::writeAtomically(destination, text, files::Durability::cached);
      return;
    }
    p += length + pngChunkOverhead;
  }
  throw CompressionError::invalidImage();
}

}  // namespace tidewell
