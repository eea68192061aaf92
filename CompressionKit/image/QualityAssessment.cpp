#include "CompressionKit/image/QualityAssessment.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/codecs/Views.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::QualityAssessment {
namespace {

constexpr double toolTimeout = 180;
constexpr std::int64_t maximumWholePixels = 8'000'000;
constexpr std::int64_t overviewSide = 2048;
constexpr std::int64_t detailSide = 768;

/// Writes "overview-<n>.png" and "detail-<n>.png" of one image, in stored orientation.
void writeViews(const URL& image, const URL& directory, const std::string& number, const StopToken& stop) {
  decoding([&] {
    const auto source = ImageSource::open(image, stop);
    writePNG(views::thumbnail(*source, 0, overviewSide, false),
             directory.appending("overview-" + number + ".png"));
    const ImageProperties properties = source->properties(0);
    const std::int64_t side = std::min({properties.width, properties.height, detailSide});
    writePNG(
        views::crop(*source, 0, (properties.width - side) / 2, (properties.height - side) / 2, side, side),
        directory.appending("detail-" + number + ".png"));
  });
}

}  // namespace

double score(const URL& original, const URL& candidate, const ImageFacts& facts, const ToolRunner& tools) {
  if (facts.width <= maximumWholePixels / facts.height) return measure(original, candidate, tools);

  const URL directory = candidate.deletingLastPathComponent().appending("score-" + UUID::random().string());
  files::createDirectory(directory);
  const files::TemporaryTree removal(directory);
  writeViews(original, directory, "0", tools.stopToken());
  writeViews(candidate, directory, "1", tools.stopToken());
  const auto compare = [&](const std::string& view) {
    return measure(directory.appending(view + "-0.png"), directory.appending(view + "-1.png"), tools);
  };
  const double overview = compare("overview");
  const double detail = compare("detail");
  return std::min(overview, detail);
}

double measure(const URL& original, const URL& candidate, const ToolRunner& tools) {
  return parsedScore(tools.run("ssimulacra2", {original.path(), candidate.path()}, toolTimeout,
                               {.readable = {original, candidate}, .writable = {}}));
}

double parsedScore(std::string_view output) {
  const std::string_view text = trimmed(output);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw CompressionError::toolFailed("ssimulacra2 未返回有效画质评分");
  }
  return value;
}

}  // namespace tidewell::QualityAssessment
