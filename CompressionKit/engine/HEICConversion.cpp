#include "CompressionKit/engine/HEICConversion.h"

#include <optional>
#include <utility>

#include "CompressionKit/CompressionError.h"
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

/// One attempt to save `png` under the name `destination`: the record of the saved PNG, or nothing when
/// something else took the name first.
std::optional<UndoRecord> save(const URL& png, const URL& destination, const URL& original,
                               const std::string& originalHash, const UUID& sessionID,
                               const std::optional<files::Times>& times, const UndoStore& undo) {
  ReplacementTransaction conversion(undo, {.original = original,
                                           .originalHash = originalHash,
                                           .candidate = png,
                                           .sessionID = sessionID,
                                           .destination = destination,
                                           .times = times});
  if (!conversion.swap()) return std::nullopt;
  // Its bytes are all there is to know; they were inspected before.
  conversion.verify(conversion.record().replacementHash, [](const URL&) {});
  conversion.commit();
  return conversion.record();
}

}  // namespace

CompressionResult compressHEIC(const CompressionEngine& engine, const URL& url, HEICDecoding& decoding,
                               std::int64_t originalBytes, const std::string& originalHash,
                               const UUID& sessionID, const std::optional<files::Times>& times,
                               const URL& workingDirectory) {
  const ImageFacts& original = decoding.facts();
  if (original.frameCount != 1) throw CompressionError::fileOperation("暂不支持包含多张图片的 HEIC 文件");
  const URL png = workingDirectory.appending("decoded.png");
  decoding.savePNG(png);
  if (decoding.hash() != originalHash) throw CompressionError::changedDuringCompression();
  const ImageFacts decoded = ImageFacts::inspect(png);
  if (!isUpright(decoded, original)) throw CompressionError::validationFailed();
  engine.tools().stopToken().throwIfStopped();

  // Its backups and reports go the way of the working directory.
  const CompressionEngine nested(engine.tools(), UndoStore(workingDirectory.appending("Undo")),
                                 engine.thresholds());
  const CompressionResult compressed = nested.compress(png, sessionID);
  if (!decoded.compatible(ImageFacts::inspect(png), true) || hash(url) != originalHash) {
    throw CompressionError::changedDuringCompression();
  }
  files::copyAttributes(url, png);  // a private photo stays private, a tagged one tagged
  engine.tools().stopToken().throwIfStopped();

  CompressionResult result;
  result.originalBytes = originalBytes;
  result.originalHash = originalHash;
  result.finalBytes = fileSize(png);
  result.outcome = CompressionOutcome::converted;
  result.encoder = "HEIC → PNG · " + compressed.encoder.value_or("无损 PNG");
  result.qualityScore = compressed.qualityScore;
  const URL directory = url.deletingLastPathComponent();
  for (int i = 0; i < 1000; ++i) {
    const std::string number = i == 0 ? "" : "（潮汐井" + std::to_string(i) + "）";
    result.url = directory.appending(url.stem() + number + ".png");
    if (files::exists(result.url)) continue;
    result.undoRecord = save(png, result.url, url, originalHash, sessionID, times, engine.undo());
    if (!result.undoRecord) continue;
    result.finalHash = result.undoRecord->replacementHash;
    return result;
  }
  throw CompressionError::fileOperation("无法创建 PNG：同名文件过多");
}

}  // namespace tidewell
