#include "CompressionKit/engine/GIFQuality.h"

#include <algorithm>
#include <string>

#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {

std::vector<URL> gifReferenceFrames(const CompressionRun& run) {
  const URL directory = run.workingFile("gif-reference");
  std::vector<URL> frames;
  for (std::int64_t i = 0; i < run.original.frameCount; ++i) {
    frames.push_back(directory.appending("frame-" + std::to_string(i) + ".png"));
    if (!files::exists(frames.back()))
      return ImageFacts::exportGIFFrames(run.url, directory, run.tools().stopToken());
  }
  return frames;
}

std::optional<double> gifQualityScore(const CompressionRun& run, const URL& output) {
  const auto references = gifReferenceFrames(run);
  // Frames take far more room than the animation; those of one output are not needed for the next.
  const files::TemporaryTree directory(run.workingFile(output.lastPathComponent() + "-frames"));
  const auto frames = ImageFacts::exportGIFFrames(output, directory.url(), run.tools().stopToken());
  if (frames.size() != references.size() || std::ssize(frames) != run.original.frameCount)
    return std::nullopt;

  double worst = QualityAssessment::identical;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (!ImageFacts::alphaDeviationWithin(references[i], frames[i], 0, run.tools().stopToken()))
      return std::nullopt;
    const double score = QualityAssessment::measure(references[i], frames[i], run.tools());
    if (score < run.engine.thresholds().gifQuality) return std::nullopt;
    worst = std::min(worst, score);
  }
  return worst;
}

}  // namespace tidewell
