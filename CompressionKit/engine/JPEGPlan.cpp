// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/EncoderPlans.h"

namespace tidewell {
namespace {

constexpr int lowestQuality = 60;
constexpr int highestQuality = 96;
constexpr int maximumAttempts = 4;

/// How an original is searched: one that was saved with fine quantisation is held to more.
struct Policy {
  double minimumScore;  ///< what a candidate must reach
  double target;        ///< what a candidate that is still too large is brought down to
  std::vector<std::string> chromaOrder;
  int startQuality;
  bool givesUpOnRejected420;  ///< when the first attempt with 4:2:0 is rejected
};

Policy policy(const CompressionRun& run) {
  const double threshold = run.engine.thresholds().quality;
  if (!ImageFacts::hasFineJPEGQuantization(run.url())) {
    return {threshold, std::max(threshold, 70.0), {"420", "444"}, 72, true};
  }
  if (run.facts().hasJPEGMultiPictureData) {
    const double minimum = std::max(threshold, 70.0);
    return {minimum, std::max(minimum, 76.0), {"420", "444"}, 72, true};
  }
  const double minimum = std::max(threshold, 86.0);
  return {minimum, minimum, {"444", "420"}, 90, false};
}

std::optional<Candidate> encoded(CompressionRun& run, const std::string& chroma, int quality,
                                 double minimumScore) {
  const std::string number = std::to_string(quality);
  const URL output = run.workingFile("jpegli-" + chroma + "-" + number + ".jpg");
  run.runTool("cjpegli", {run.url().path(), output.path(), "--quality=" + number,
                          "--chroma_subsampling=" + chroma, "--quiet"});
  return run.consider(output, "Jpegli q" + number + " " + chroma, ScoreAtLeast{minimumScore});
}

/// Appends at most one candidate: the first that is good enough and smaller than the original.
void searchQuality(CompressionRun& run, const Policy& policy, const std::string& chroma) {
  int low = lowestQuality, high = highestQuality, quality = policy.startQuality;
  bool seen = false;  // an accepted one, so all that is left is to find a smaller one
  for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
    std::optional<Candidate> candidate;
    if (!run.attempt([&] { candidate = encoded(run, chroma, quality, policy.minimumScore); })) return;

    if (!run.candidates.empty()) return;
    if (candidate) {
      const double excess = candidate->score.value_or(0) - policy.target;
      if (excess <= 1) return;
      const int step = std::clamp(static_cast<int>(excess * 1.2), 1, 12);
      high = quality - 1;
      quality = std::max(std::min(quality - step, high), low);
      if (high < low) return;
      seen = true;
    } else {
      if (policy.givesUpOnRejected420 && attempt == 0 && chroma == "420") return;
      low = quality + 1;
      if (high < low) return;
      quality = attempt == 2 && !seen ? high : (low + high) / 2;
    }
  }
}

}  // namespace

void runJPEGPlan(CompressionRun& run) {
  for (const std::string_view tool : {std::string_view("cjpegli"), QualityAssessment::metricTool}) {
    if (!run.tools().has(tool)) throw CompressionError::toolMissing(tool);
  }
  const Policy chosen = policy(run);
  for (const auto& chroma : chosen.chromaOrder) {
    if (!run.candidates.empty()) return;
    searchQuality(run, chosen, chroma);
  }
}

}  // namespace tidewell
