// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/CompressionEngine.h"

#include <optional>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/FormatPolicy.h"
#include "CompressionKit/engine/HEICConversion.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/undo/ReplacementTransaction.h"
#include "CompressionKit/undo/WorkingDirectory.h"

namespace tidewell {
namespace {

/// Saves the trace however the run ends.
class SavedTrace {
 public:
  SavedTrace(const URL& file, ReportDirectory& reports) : trace(file), reports_(reports) {}
  SavedTrace(const SavedTrace&) = delete;
  SavedTrace& operator=(const SavedTrace&) = delete;
  ~SavedTrace() {
    if (isWanted) trace.save(reports_);
  }

  CompressionTrace trace;
  bool isWanted = true;

 private:
  ReportDirectory& reports_;
};

UndoRecord replaceOriginal(const CompressionRun& run, const Candidate& choice, const UUID& sessionID) {
  const Original& original = run.original;
  if (original.hasChanged()) throw CompressionError::changedDuringCompression();
  run.trace.selectedEncoder = choice.encoder;
  const bool keepsTimes = run.options.keepTimes;
  ReplacementTransaction replacement(run.engine.undo(),
                                     {.original = original.url(),
                                      .originalHash = original.hash(),
                                      .candidate = choice.url,
                                      .sessionID = sessionID,
                                      .times = keepsTimes ? std::optional(original.times()) : std::nullopt});
  replacement.swap();
  replacement.verify(choice.hash, [&](const URL& replaced) {
    if (!original.facts().compatible(ImageFacts::inspect(replaced), choice.allowsSRGBConversion)) {
      throw CompressionError::validationFailed();
    }
  });
  replacement.commit();
  return replacement.record();
}

CompressionResult recompress(CompressionRun& run, const UUID& sessionID) {
  if (run.options.recompress) formatPolicy(run.facts().kind).plan(run);
  const bool mayStay = run.strip();
  const Candidate* choice = run.choice();
  if (!choice) return run.passedOver(PassedOver::notSmaller);
  if (mayStay && run.options.isTooLittle(run.original.bytes(), choice->bytes)) {
    const bool isStripped = run.stripped && run.stripped->url == choice->url;
    if (!isStripped) {
      run.trace.append({choice->encoder, "rejected", "below_minimum", choice->bytes, choice->score, {}});
    }
    if (!run.stripped) return run.passedOver(PassedOver::belowMinimum);
    choice = &*run.stripped;  // what must go goes for any gain
  }
  run.tools().stopToken().throwIfStopped();
  CompressionResult result;
  result.url = run.url();
  result.originalBytes = run.original.bytes();
  result.finalBytes = choice->bytes;
  result.outcome = CompressionOutcome::replaced;
  result.encoder = choice->encoder;
  result.qualityScore = choice->score;
  result.originalHash = run.original.hash();
  result.finalHash = choice->hash;
  if (run.options.outputs) run.options.outputs->willPublish(result);
  result.undoRecord = replaceOriginal(run, *choice, sessionID);
  return result;
}

}  // namespace

CompressionEngine::CompressionEngine(ToolRunner tools, UndoStore undo, Thresholds thresholds,
                                     HEICProgram heicProgram)
    : tools_(std::move(tools)),
      undo_(std::move(undo)),
      reports_(std::make_shared<ReportDirectory>(undo_.diagnosticsDirectory())),
      thresholds_(thresholds),
      heicProgram_(std::move(heicProgram)) {}

CompressionEngine CompressionEngine::stoppedBy(StopToken stop) const {
  CompressionEngine other = *this;
  other.tools_ = ToolRunner(tools_.directory(), std::move(stop));
  return other;
}

CompressionResult CompressionEngine::compress(const URL& url, const UUID& sessionID,
                                              const CompressionOptions& options) const {
  if (!url.isFileURL()) throw CompressionError::fileOperation("请选择本地图片文件");
  SavedTrace saved(url, *reports_);
  CompressionTrace& trace = saved.trace;
  tools_.stopToken().throwIfStopped();
  Original original(url, tools_.stopToken(), heicProgram_);
  trace.profile = original.facts().profileName;
  const WorkingDirectory working(url.deletingLastPathComponent());

  CompressionRun run{.engine = *this,
                     .options = options,
                     .trace = trace,
                     .original = original,
                     .workingDirectory = working.url()};
  CompressionResult result;
  if (options.keepMetadata && metadata::embedsMedia(url, tools_.stopToken())) {
    trace.append({"candidate", "rejected", "embedded_media", {}, {}, {}});
    result = run.passedOver(PassedOver::embeddedMedia);
  } else if (original.heic() && !options.recompress) {
    result = run.passedOver(PassedOver::notSmaller);
  } else {
    result = original.heic() ? convertHEIC(run, sessionID) : recompress(run, sessionID);
  }
  trace.selectedEncoder = result.encoder;
  trace.outcome = result.outcome.rawValue();
  // Where nothing was tried, the report of the run that made the file says more.
  saved.isWanted = options.recompress || !trace.events().empty();
  return result;
}

}  // namespace tidewell
