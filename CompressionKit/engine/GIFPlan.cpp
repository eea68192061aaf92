#include <cstdint>
#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/CandidateValidation.h"
#include "CompressionKit/engine/EncoderPlans.h"
#include "CompressionKit/engine/GIFQuality.h"
#include "CompressionKit/image/GIFPalette.h"
#include "CompressionKit/platform/Digest.h"

namespace tidewell {
namespace {

void optimise(CompressionRun& run) {
  run.attempt([&] {
    const URL output = run.workingFile("optimized.gif");
    run.runTool("gifsicle",
                {"-O2", "-Okeep-empty", "--no-ignore-errors", run.url.path(), "-o", output.path()});
    if (auto candidate = validated(run, output, "Gifsicle -O2", {.isLossy = false})) {
      run.candidates.push_back(*std::move(candidate));
    }
  });
}

/// Only an output below the budget is worth its loss; a milder level would be larger still.
void tryLossyLevels(CompressionRun& run, std::int64_t budget) {
  bool ended = false;
  for (const char* level : {"12", "4"}) {
    run.attempt([&] {
      const URL output = run.workingFile(std::string("lossy-") + level + ".gif");
      run.runTool("gifsicle", {"-O2", "-Okeep-empty", "--no-ignore-errors", "--gamma=1",
                               std::string("--lossy=") + level, run.url.path(), "-o", output.path()});
      if (fileSize(output) >= budget) {
        ended = true;
      } else if (auto candidate = validated(run, output, std::string("Gifsicle lossy") + level, {})) {
        run.candidates.push_back(*std::move(candidate));
        ended = true;
      }
    });
    if (ended) return;
  }
}

/// The animation with all frames brought to one palette of `colours`; nothing when it was rejected.
std::optional<Candidate> withSharedPalette(const CompressionRun& run, const URL& sample,
                                           const std::string& colours) {
  const URL palette = run.workingFile("gif-palette-" + colours + ".png");
  const URL map = run.workingFile("gif-palette-" + colours + ".txt");
  const URL output = run.workingFile("shared-" + colours + ".gif");
  run.runTool("pngquant",
              {colours, "--speed", "1", "--floyd=0.25", "--output", palette.path(), "--", sample.path()});
  GIFPalette::colourMap(palette, map);
  run.runTool("gifsicle", {"-O3", "-Okeep-empty", "--no-ignore-errors", "--gamma=1", "--use-colormap",
                           map.path(), "--no-dither", "--lossy=4", run.url.path(), "-o", output.path()});
  return validated(run, output, "pngquant GIF " + colours + " colors + Gifsicle lossy4", {});
}

void trySharedPalettes(CompressionRun& run) {
  std::optional<URL> sample;
  run.attempt([&] {
    sample = GIFPalette::sample(gifReferenceFrames(run), run.workingDirectory, run.tools().stopToken());
  });
  if (!sample) return;
  bool accepted = false;
  // 255, not 256: gifsicle needs one entry for transparency.
  for (const char* colours : {"192", "255", "128"}) {
    const bool completed = run.attempt([&] {
      if (auto candidate = withSharedPalette(run, *sample, colours)) {
        run.candidates.push_back(*std::move(candidate));
        accepted = true;
      }
    });
    if (!completed || accepted) return;
  }
}

}  // namespace

void runGIFPlan(CompressionRun& run) {
  if (!run.tools().has("gifsicle")) throw CompressionError::toolMissing("gifsicle");
  optimise(run);
  if (!run.tools().has("ssimulacra2")) return;

  const std::int64_t budget = run.originalBytes * 9 / 10;
  tryLossyLevels(run, budget);
  if (!run.tools().has("pngquant")) return;
  if (const Candidate* best = run.smallest(); best && best->bytes < budget) return;
  trySharedPalettes(run);
}

}  // namespace tidewell
