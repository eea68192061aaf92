// Putting an original back. Every file that is overwritten or removed here is hashed immediately before, so
// that nothing the user changed since the replacement is ever lost.

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/AtomicRename.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {
namespace {

void requireHash(const URL& url, const std::string& expected) {
  if (hash(url) != expected) throw CompressionError::unsafeRestore();
}

/// A proven copy of the backup beside the place it goes to; it disappears unless it was moved there.
class RestoreTemporary {
 public:
  RestoreTemporary(const URL& backup, const std::string& backupHash, const URL& original)
      : file_(
            original.deletingLastPathComponent().appending(".tidewell-restore-" + UUID::random().string())) {
    files::copyItem(backup, file_.url());
    if (hash(file_.url()) != backupHash) throw CompressionError::validationFailed();
  }
  const URL& url() const { return file_.url(); }

 private:
  files::TemporaryTree file_;
};

void moveIfAbsent(const URL& source, const URL& destination) {
  if (!atomicRenameIfAbsent(source, destination)) throw CompressionError::unsafeRestore();
}

void restoreInPlace(const UndoRecord& record, const URL& backup, const std::string& backupHash) {
  const URL original = URL::file(record.originalPath);
  if (files::exists(original)) requireHash(original, record.replacementHash);
  const RestoreTemporary temporary(backup, backupHash, original);
  if (files::exists(original)) {
    requireHash(original, record.replacementHash);
    atomicRename(temporary.url(), original);
  } else {
    moveIfAbsent(temporary.url(), original);
  }
}

void restoreConversion(const UndoRecord& record, const URL& backup, const std::string& backupHash) {
  const URL original = URL::file(record.originalPath);
  const URL converted = URL::file(*record.convertedPath);
  if (files::exists(converted)) requireHash(converted, record.replacementHash);
  if (files::exists(original)) {
    requireHash(original, backupHash);
  } else {
    const RestoreTemporary temporary(backup, backupHash, original);
    moveIfAbsent(temporary.url(), original);
  }
  if (files::exists(converted)) {
    requireHash(converted, record.replacementHash);
    files::removeItem(converted);
  }
}

}  // namespace

std::string UndoStore::verifyBackup(const UndoRecord& record) const {
  const URL backup = backupURL(record);
  const auto damaged = [] { return CompressionError::fileOperation("原图备份已损坏，无法恢复或对比"); };
  if (!files::exists(backup)) throw CompressionError::fileOperation("原图备份已不存在");
  const auto values = files::resourceValues(backup);
  if (!values.isRegularFile || values.isSymbolicLink) throw damaged();
  if (fileSize(backup) != record.originalBytes) throw damaged();
  if (!record.originalHash) ImageFacts::inspect(backup);
  std::string backupHash = hash(backup);
  if (record.originalHash && *record.originalHash != backupHash) throw damaged();
  return backupHash;
}

void UndoStore::restore(const UndoRecord& record, Date now) const {
  if (now >= record.createdAt.adding(backupRetention)) {
    removeBackup(record);
    throw CompressionError::fileOperation("原图备份已过期");
  }
  const std::string backupHash = verifyBackup(record);
  if (record.convertedPath) {
    restoreConversion(record, backupURL(record), backupHash);
  } else {
    restoreInPlace(record, backupURL(record), backupHash);
  }
  discard(record);
}

}  // namespace tidewell
