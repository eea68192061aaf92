#include "CompressionKit/undo/AtomicRename.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <cerrno>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

CompressionError renameFailed(std::string_view prefix, int code) {
  char buffer[256] = {};
  return CompressionError::fileOperation(std::string(prefix) + strerror_r(code, buffer, sizeof buffer));
}

/// The move has happened, so a flush that fails must not look like a move that failed: the caller would put
/// back a file that is not there. What was verified stands; the kernel writes the directory in its own time.
void flushDirectories(const URL& source, const URL& destination) {
  const URL directory = destination.deletingLastPathComponent();
  const URL old = source.deletingLastPathComponent();
  try {
    files::flush(directory);
    if (!(old == directory)) files::flush(old);
  } catch (const FileError&) {
  }
}

}  // namespace

void atomicRename(const URL& source, const URL& destination) {
  files::flush(source);
  if (rename(source.path().c_str(), destination.path().c_str()) != 0) {
    throw renameFailed("替换文件失败：", errno);
  }
  flushDirectories(source, destination);
}

bool atomicRenameIfAbsent(const URL& source, const URL& destination) {
  files::flush(source);
  if (renameat2(AT_FDCWD, source.path().c_str(), AT_FDCWD, destination.path().c_str(), RENAME_NOREPLACE) !=
      0) {
    if (errno == EEXIST) return false;
    throw renameFailed("保存 PNG 失败：", errno);
  }
  flushDirectories(source, destination);
  return true;
}

}  // namespace tidewell
