// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/HEICConversion.h"

#include <optional>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/FormatPolicy.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/ReplacementTransaction.h"

namespace tidewell {
namespace {

/// Whether the decoded PNG shows what the facts of the HEIC file promise.
bool isUpright(const ImageFacts& png, const ImageFacts& original) {
  std::int64_t width = original.width;
  std::int64_t height = original.height;
  if (original.orientation >= 5) std::swap(width, height);
  return png.width == width && png.height == height && png.orientation == 1;
}

/// A PNG that is finished, and what was judged of it.
struct Finished {
  URL url;
  std::string hash;
  std::optional<std::string> encoder;
  std::optional<double> score;
};

/// The smallest encoding of the decoded image, or that itself. Throws as `compress`.
Finished compressed(const CompressionRun& run, Original& decoded) {
  CompressionTrace trace(decoded.url());
  CompressionRun nested{.engine = run.engine,
                        .options = run.options,
                        .trace = trace,
                        .original = decoded,
                        .workingDirectory = run.workingFile("png")};
  files::createDirectory(nested.workingDirectory);
  formatPolicy(ImageKind::png).plan(nested);
  const Candidate* choice = nested.choice();
  if (!choice) return {decoded.url(), decoded.hash(), std::nullopt, std::nullopt};
  if (decoded.hasChanged()) throw CompressionError::changedDuringCompression();
  return {choice->url, choice->hash, choice->encoder, choice->score};
}

/// What still has the hash of what was judged needs no second look. Anything else is inspected anew, and
/// taken where it agrees with the decoded image.
void requireSound(Finished& png, const ImageFacts& decoded, const StopToken& stop) {
  std::string found = hash(png.url);
  if (found == png.hash) return;
  if (!decoded.compatible(ImageFacts::inspect(png.url, stop), true)) {
    throw CompressionError::changedDuringCompression();
  }
  png.hash = std::move(found);
}

/// One attempt to save the PNG under the name `destination`: the record of the saved PNG, or nothing when
/// something else took the name first.
std::optional<UndoRecord> save(const CompressionRun& run, const Finished& png, const URL& destination,
                               const UUID& sessionID) {
  const Original& original = run.original;
  ReplacementTransaction conversion(
      run.engine.undo(), {.original = original.url(),
                          .originalHash = original.hash(),
                          .candidate = png.url,
                          .sessionID = sessionID,
                          .destination = destination,
                          .times = run.options.keepTimes ? std::optional(original.times()) : std::nullopt});
  if (!conversion.swap()) return std::nullopt;
  conversion.verify(png.hash, [](const URL&) { throw CompressionError::validationFailed(); });
  conversion.commit();
  return conversion.record();
}

}  // namespace

URL conversionURL(const URL& original, int attempt) {
  std::string name = original.stem();
  if (attempt > 0) name += "（潮汐井" + std::to_string(attempt) + "）";
  return original.deletingLastPathComponent().appending(name + ".png");
}

CompressionResult convertHEIC(CompressionRun& run, const UUID& sessionID) {
  Original& original = run.original;
  if (original.facts().frameCount != 1) {
    throw CompressionError::fileOperation("暂不支持包含多张图片的 HEIC 文件");
  }
  const URL decodedPNG = run.workingFile("decoded.png");
  original.heic()->savePNG(decodedPNG);
  if (run.options.keepMetadata) metadata::carry(original.url(), decodedPNG, run.tools().stopToken());
  if (original.hasChanged()) throw CompressionError::changedDuringCompression();
  Original decoded(decodedPNG, run.tools().stopToken());
  if (!isUpright(decoded.facts(), original.facts())) throw CompressionError::validationFailed();
  run.tools().stopToken().throwIfStopped();

  Finished png = compressed(run, decoded);
  requireSound(png, decoded.facts(), run.tools().stopToken());
  if (original.hasChanged()) throw CompressionError::changedDuringCompression();
  if (run.options.isTooLittle(original.bytes(), fileSize(png.url))) {
    return run.passedOver(PassedOver::belowMinimum);
  }
  files::copyAttributes(original.url(), png.url);  // a private photo stays private, a tagged one tagged
  run.tools().stopToken().throwIfStopped();

  CompressionResult result;
  result.originalBytes = original.bytes();
  result.finalBytes = fileSize(png.url);
  result.outcome = CompressionOutcome::converted;
  result.encoder = "HEIC → PNG · " + png.encoder.value_or("无损 PNG");
  result.qualityScore = png.score;
  result.originalHash = original.hash();
  result.finalHash = png.hash;
  if (run.options.outputs) run.options.outputs->willPublish(result);
  for (int attempt = 0; attempt < maximumConversionNames; ++attempt) {
    result.url = conversionURL(original.url(), attempt);
    if (files::exists(result.url)) continue;
    result.undoRecord = save(run, png, result.url, sessionID);
    if (result.undoRecord) return result;
  }
  throw CompressionError::fileOperation("无法创建 PNG：同名文件过多");
}

}  // namespace tidewell
