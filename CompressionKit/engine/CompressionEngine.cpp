#include "CompressionKit/engine/CompressionEngine.h"

#include <exception>
#include <optional>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/diagnostics/CompressionTrace.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/FormatPolicy.h"
#include "CompressionKit/engine/HEICConversion.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/ReplacementTransaction.h"
#include "CompressionKit/undo/WorkingDirectory.h"

namespace tidewell {
namespace {

/// Saves the trace however the run ends.
class SavedTrace {
 public:
  SavedTrace(const URL& file, URL directory) : trace(file), directory_(std::move(directory)) {}
  SavedTrace(const SavedTrace&) = delete;
  SavedTrace& operator=(const SavedTrace&) = delete;
  ~SavedTrace() { trace.save(directory_); }

  CompressionTrace trace;

 private:
  URL directory_;
};

void requireRegularFile(const URL& url) {
  const auto values = files::resourceValues(url);
  if (!values.isRegularFile || values.isSymbolicLink) {
    throw CompressionError::fileOperation("请选择普通图片文件");
  }
}

UndoRecord replaceOriginal(const CompressionRun& run, const Candidate& choice) {
  if (hash(run.url) != run.originalHash) throw CompressionError::changedDuringCompression();
  run.trace.selectedEncoder = choice.encoder;
  ReplacementTransaction replacement(run.engine.undo(), {.original = run.url,
                                                         .originalHash = run.originalHash,
                                                         .candidate = choice.url,
                                                         .sessionID = run.sessionID,
                                                         .times = run.times});
  replacement.swap();
  replacement.verify(choice.hash, [&](const URL& replaced) {
    if (!run.original.compatible(ImageFacts::inspect(replaced), choice.allowsSRGBConversion)) {
      throw CompressionError::validationFailed();
    }
  });
  replacement.commit();
  return replacement.record();
}

/// The file's hash, if it is an image of its kind by its first bytes. Anything else, a film perhaps, is not
/// worth reading whole: its inspection refuses it.
std::optional<std::string> hashOfImage(const URL& url, const StopToken& stop) {
  try {
    const auto kind = ImageKind::from(url);
    if (!kind || !kind->accepts(ImageSource::open(url, stop)->container())) return std::nullopt;
    return hash(url);
  } catch (const FileError&) {
    return std::nullopt;
  } catch (const ImageDecodeError&) {
    return std::nullopt;
  }
}

std::optional<QualityAssessment::ViewFiles> writtenViews(const ImageFacts::Inspection& inspection,
                                                         const URL& directory) {
  if (!inspection.views) return std::nullopt;
  return QualityAssessment::writeViews(*inspection.views, directory, "0");
}

CompressionResult finish(CompressionRun& run) {
  CompressionResult result;
  result.url = run.url;
  result.originalBytes = result.finalBytes = run.originalBytes;
  result.originalHash = run.originalHash;
  const Candidate* choice = run.smallest();
  if (!choice) {
    if (run.lastError) std::rethrow_exception(run.lastError);
    result.passedOver = PassedOver::notSmaller;
    return result;
  }
  run.tools().stopToken().throwIfStopped();
  result.undoRecord = replaceOriginal(run, *choice);
  result.outcome = CompressionOutcome::replaced;
  result.finalBytes = choice->bytes;
  result.encoder = choice->encoder;
  result.finalHash = choice->hash;
  result.qualityScore = choice->score;
  return result;
}

}  // namespace

CompressionEngine::CompressionEngine(ToolRunner tools, UndoStore undo, Thresholds thresholds,
                                     HEICProgram heicProgram)
    : tools_(std::move(tools)),
      undo_(std::move(undo)),
      thresholds_(thresholds),
      heicProgram_(std::move(heicProgram)) {}

CompressionResult CompressionEngine::compress(const URL& url, const UUID& sessionID,
                                              const CompressionOptions& options) const {
  if (!url.isFileURL()) throw CompressionError::fileOperation("请选择本地图片文件");
  SavedTrace saved(url, undo_.diagnosticsDirectory());
  CompressionTrace& trace = saved.trace;
  tools_.stopToken().throwIfStopped();
  requireRegularFile(url);
  // Before anything reads it.
  const auto times = options.keepTimes ? std::optional(files::times(url)) : std::nullopt;
  // Decoded once: the conversion goes on with what the inspection made of it.
  std::optional<HEICDecoding> heic;
  if (ImageKind::from(url) == ImageKind::heic) {
    heic.emplace(url, HEICDecoding::Purpose::convert, tools_.stopToken(), heicProgram_);
  }
  // Before the inspection, so that the file, while it has this hash, is what was inspected.
  std::optional<std::string> hashed = heic ? std::nullopt : hashOfImage(url, tools_.stopToken());
  const ImageFacts::Inspection inspection = heic ? ImageFacts::Inspection{.facts = heic->facts()}
                                                 : ImageFacts::inspectWithViews(url, tools_.stopToken());
  const ImageFacts& original = inspection.facts;
  trace.profile = original.profileName;
  const std::int64_t originalBytes = fileSize(url);
  std::string originalHash = hashed ? *std::move(hashed) : hash(url);

  const WorkingDirectory working(url.deletingLastPathComponent());

  CompressionResult result;
  if (heic) {
    result = compressHEIC(*this, url, *heic, originalBytes, originalHash, sessionID, times, working.url());
    trace.selectedEncoder = result.encoder;
  } else {
    CompressionRun run{.engine = *this,
                       .url = url,
                       .sessionID = sessionID,
                       .options = options,
                       .trace = trace,
                       .original = original,
                       .originalBytes = originalBytes,
                       .originalHash = std::move(originalHash),
                       .times = times,
                       .workingDirectory = working.url(),
                       .originalViews = writtenViews(inspection, working.url()),
                       .candidates = {},
                       .lastError = nullptr};
    formatPolicy(original.kind).plan(run);
    result = finish(run);
  }
  trace.outcome = result.outcome.rawValue();
  return result;
}

}  // namespace tidewell
