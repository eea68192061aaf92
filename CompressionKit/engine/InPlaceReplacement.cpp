#include "CompressionKit/engine/InPlaceReplacement.h"

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/AtomicRename.h"

namespace tidewell {
namespace {

void requireUnchanged(const CompressionRun& run, const URL& url) {
  if (hash(url) != run.originalHash) throw CompressionError::changedDuringCompression();
}

void swapIn(const CompressionRun& run, const Candidate& choice, const UndoRecord& record) {
  const UndoStore& undo = run.engine.undo();
  const auto found = files::resourceValues(run.url);
  requireUnchanged(run, run.url);
  requireUnchanged(run, undo.backupURL(record));
  files::copyAttributes(run.url, choice.url);
  files::flush(choice.url);
  // Seconds may have passed since the original was hashed: a last look, so that nobody's new work is lost.
  if (!found.isRegularFile || files::resourceValues(run.url) != found) {
    throw CompressionError::changedDuringCompression();
  }
  atomicRename(choice.url, run.url);
  if (!run.original.compatible(ImageFacts::inspect(run.url), choice.allowsSRGBConversion) ||
      hash(run.url) != record.replacementHash) {
    throw CompressionError::validationFailed();
  }
  undo.commit(record);
}

/// The candidate stands at the original's place, or nothing that can be read does.
bool isReplaced(const URL& url, const UndoRecord& record) {
  try {
    return hash(url) == record.replacementHash;
  } catch (const FileError&) {
    return true;
  }
}

void rollBack(const CompressionRun& run, const UndoRecord& record) noexcept {
  const UndoStore& undo = run.engine.undo();
  try {
    if (isReplaced(run.url, record)) {
      const URL copy = run.workingFile("rollback." + run.url.pathExtension());
      files::copyItem(undo.backupURL(record), copy);
      if (hash(copy) != record.originalHash) return;
      atomicRename(copy, run.url);
    }
  } catch (const std::exception&) {
    return;  // backup and record stay: the user can still restore
  }
  undo.discard(record);
}

}  // namespace

UndoRecord replaceOriginal(const CompressionRun& run, const Candidate& choice) {
  requireUnchanged(run, run.url);
  run.trace.selectedEncoder = choice.encoder;
  UndoRecord record = run.engine.undo().prepare(run.url, choice.url, run.sessionID, std::nullopt);
  try {
    swapIn(run, choice, record);
  } catch (...) {
    rollBack(run, record);
    throw;
  }
  return record;
}

}  // namespace tidewell
