#include <memory>
#include <string>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/ImageSource.h"
#include "CompressionKit/platform/PNGWriter.h"

namespace tidewell {
namespace {

void exportFrame(ImageSource& gif, std::size_t index, const URL& url, std::vector<std::uint8_t>& row) {
  const auto rows = gif.rows(index);
  std::unique_ptr<PNGWriter> writer;
  try {
    writer = std::make_unique<PNGWriter>(url, PNGWriter::Options{.width = rows->width(),
                                                                 .height = rows->height(),
                                                                 .hasAlpha = true,
                                                                 .bitsPerSample = 8,
                                                                 .color = {},
                                                                 .fast = true});
  } catch (const FileError&) {
    throw CompressionError::fileOperation("无法创建动图验证帧");
  }
  row.resize(static_cast<std::size_t>(rows->width()) * 4);
  for (std::int64_t y = 0; y < rows->height(); ++y) {
    rows->read(row);
    writer->writeRow(row);
  }
  writer->finish();
}

}  // namespace

std::vector<URL> ImageFacts::exportGIFFrames(const URL& gif, const URL& directory) {
  try {
    const auto source = ImageSource::open(gif);
    files::createDirectories(directory);
    std::vector<URL> frames;
    std::vector<std::uint8_t> row;
    for (std::size_t i = 0; i < source->count(); ++i) {
      frames.push_back(directory.appending("frame-" + std::to_string(i) + ".png"));
      exportFrame(*source, i, frames.back(), row);
    }
    return frames;
  } catch (const ImageDecodeError&) {
    throw CompressionError::invalidImage();
  }
}

}  // namespace tidewell
