// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/EncoderPlans.h"
#include "CompressionKit/engine/GIFQuality.h"
#include "CompressionKit/image/GIFPalette.h"
#include "CompressionKit/platform/Digest.h"

namespace tidewell {
namespace {

/// `madeOutput` is called before the output is judged.
void optimise(CompressionRun& run, const std::function<void()>& madeOutput) {
  run.attempt([&] {
    const URL output = run.workingFile("optimized.gif");
    run.runTool("gifsicle",
                {"-O2", "-Okeep-empty", "--no-ignore-errors", run.url().path(), "-o", output.path()});
    madeOutput();
    run.consider(output, "Gifsicle -O2", SamePixels{});
  });
}

constexpr const char* lossyLevels[] = {"12", "4"};

URL lossyOutput(const CompressionRun& run, const std::string& level) {
  return run.workingFile("lossy-" + level + ".gif");
}

void makeLossy(const CompressionRun& run, const std::string& level) {
  run.runTool("gifsicle", {"-O2", "-Okeep-empty", "--no-ignore-errors", "--gamma=1", "--lossy=" + level,
                           run.url().path(), "-o", lossyOutput(run, level).path()});
}

/// Only an output below the budget is worth its loss; a milder level would be larger still. `first`, unless
/// empty, is under way to make the output of the first level.
void tryLossyLevels(CompressionRun& run, std::int64_t budget, std::future<void> first) {
  bool ended = false;
  for (const char* level : lossyLevels) {
    run.attempt([&] {
      if (first.valid()) {
        first.get();
      } else {
        makeLossy(run, level);
      }
      const URL output = lossyOutput(run, level);
      if (fileSize(output) >= budget) {
        ended = true;
      } else {
        ended = run.consider(output, std::string("Gifsicle lossy") + level, ScoreAtLeast{}).has_value();
      }
    });
    if (ended) return;
  }
}

/// Tries the animation with all frames brought to one palette of `colours`; false when it was rejected.
bool trySharedPalette(CompressionRun& run, const URL& sample, const std::string& colours) {
  const URL palette = run.workingFile("gif-palette-" + colours + ".png");
  const URL map = run.workingFile("gif-palette-" + colours + ".txt");
  const URL output = run.workingFile("shared-" + colours + ".gif");
  run.runTool("pngquant",
              {colours, "--speed", "1", "--floyd=0.25", "--output", palette.path(), "--", sample.path()});
  GIFPalette::colourMap(palette, map);
  run.runTool("gifsicle", {"-O3", "-Okeep-empty", "--no-ignore-errors", "--gamma=1", "--use-colormap",
                           map.path(), "--no-dither", "--lossy=4", run.url().path(), "-o", output.path()});
  return run.consider(output, "pngquant GIF " + colours + " colors + Gifsicle lossy4", ScoreAtLeast{})
      .has_value();
}

void trySharedPalettes(CompressionRun& run) {
  std::optional<URL> sample;
  run.attempt([&] {
    const auto wanted = GIFPalette::sampledFrames(static_cast<std::size_t>(run.facts().frameCount));
    sample =
        GIFPalette::sample(gifReferenceFrames(run, wanted), run.workingDirectory, run.tools().stopToken());
  });
  if (!sample) return;
  bool accepted = false;
  // 255, not 256: gifsicle needs one entry for transparency.
  for (const char* colours : {"192", "255", "128"}) {
    const bool completed = run.attempt([&] { accepted = trySharedPalette(run, *sample, colours); });
    if (!completed || accepted) return;
  }
}

}  // namespace

void runGIFPlan(CompressionRun& run) {
  if (!run.tools().has("gifsicle")) throw CompressionError::toolMissing("gifsicle");
  const bool isMeasured = QualityAssessment::isAvailable(run.tools());
  // The first lossy level follows whatever comes of the lossless one: its tool has the processor that is idle
  // while that is judged. What it throws is thrown in its own attempt. Without a thread to be had it runs
  // there, too; a future that nobody asked waits for its thread.
  std::future<void> firstLossy;
  optimise(run, [&] {
    if (!isMeasured) return;
    constexpr auto ifPossible = std::launch::async | std::launch::deferred;
    firstLossy = std::async(ifPossible, [&run] { makeLossy(run, lossyLevels[0]); });
  });
  if (!isMeasured) return;

  const std::int64_t budget = run.original.bytes() * 9 / 10;
  tryLossyLevels(run, budget, std::move(firstLossy));
  if (!run.tools().has("pngquant")) return;
  if (const Candidate* best = run.smallest(); best && best->bytes < budget) return;
  trySharedPalettes(run);
}

}  // namespace tidewell
