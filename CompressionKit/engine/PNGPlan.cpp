// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/EncoderPlans.h"
#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/image/ColorAgreement.h"

namespace tidewell {
namespace {

struct Rung {
  std::string maximumQuality;
  std::string dither;
  std::string speed;
};

const Rung ladder[] = {
    {"90", "0.25", "1"},
    {"90", "1.0", "4"},
    {"100", "1.0", "4"},
    {"100", "0.0", "4"},
};

void tryRung(CompressionRun& run, const Rung& rung, std::size_t number) {
  const URL output = run.workingFile("quant-" + std::to_string(number) + ".png");
  run.runTool("pngquant", {"--quality=0-" + rung.maximumQuality, "--speed", rung.speed,
                           "--floyd=" + rung.dither, "--output", output.path(), "--", run.url().path()});
  run.consider(output, "pngquant q" + rung.maximumQuality + " floyd" + rung.dither + " s" + rung.speed,
               ScoreAtLeast{});
}

/// The tool knows sRGB only, and clips what it converts.
bool losesColors(CompressionRun& run) {
  return (run.options.keepMetadata || run.options.stripMetadata) &&
         needsMoreThanSRGB(run.url(), run.original.properties(), run.tools().stopToken());
}

/// Ends with the first rung that passes: the later ones are larger.
void climbLadder(CompressionRun& run) {
  for (std::size_t number = 0; number < std::size(ladder) && run.candidates.empty(); ++number) {
    run.attempt([&] { tryRung(run, ladder[number], number); });
  }
}

void optimise(CompressionRun& run, const URL& input, const std::string& name, const std::string& label,
              const Proof& proof) {
  run.attempt([&] {
    const URL output = run.workingFile(name);
    run.runTool("oxipng", {"--threads", "1", "-o", "1", "--out", output.path(), input.path()});
    run.consider(output, label, proof);
  });
}

}  // namespace

void runPNGPlan(CompressionRun& run) {
  const bool canQuantise = run.tools().has("pngquant");
  const bool canOptimise = run.tools().has("oxipng");
  if (!canQuantise && !canOptimise) throw CompressionError::toolMissing("pngquant / oxipng");

  if (!canQuantise || !QualityAssessment::isAvailable(run.tools())) {
    run.trace.append({.encoder = "pngquant",
                      .status = "unavailable",
                      .reason = "missing_component",
                      .bytes = std::nullopt,
                      .score = std::nullopt,
                      .detail = std::string(canQuantise ? QualityAssessment::metricTool : "pngquant")});
  } else if (losesColors(run)) {
    run.trace.append({.encoder = "pngquant",
                      .status = "rejected",
                      .reason = "metadata_mismatch",
                      .bytes = std::nullopt,
                      .score = std::nullopt,
                      .detail = run.facts().profileName.value_or("none") + " -> sRGB"});
  } else {
    climbLadder(run);
  }
  if (!canOptimise) return;

  if (const Candidate* found = run.smallest()) {
    const Candidate palette = *found;  // the list grows meanwhile
    optimise(run, palette.url, "palette-opt.png", palette.encoder + " + OxiPNG", SamePixelsAs{palette});
  } else {
    optimise(run, run.url(), "lossless.png", "OxiPNG", SamePixels{});
  }
}

}  // namespace tidewell
