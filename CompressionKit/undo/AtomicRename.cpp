// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/AtomicRename.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// The move has happened, so a flush that fails must not look like a move that failed: the caller would put
/// back a file that is not there. What was verified stands; the kernel writes the directory in its own time.
void flushDirectories(const URL& first, const URL& second) {
  const URL directory = first.deletingLastPathComponent();
  const URL other = second.deletingLastPathComponent();
  try {
    files::flush(directory);
    if (!(other == directory)) files::flush(other);
  } catch (const FileError&) {
  }
}

/// A rename with a flag that this file system, or this kernel, does not know.
bool isMissingFlag(int code) {
  return code == EINVAL || code == ENOSYS || code == ENOTSUP;
}

bool isSameFile(const URL& a, const URL& b) {
  struct stat first {
  }, second{};
  return lstat(a.path().c_str(), &first) == 0 && lstat(b.path().c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

/// 0, or an errno value.
int linkAndUnlink(const URL& source, const URL& destination) {
  if (link(source.path().c_str(), destination.path().c_str()) != 0) {
    const int code = errno;
    // A file server may do what it was asked and lose its answer; asked again, it finds the name taken.
    if (code != EEXIST || !isSameFile(source, destination)) return code;
  }
  unlink(source.path().c_str());  // a second name in a directory of ours, which goes with it
  return 0;
}

}  // namespace

void atomicRename(const URL& source, const URL& destination) {
  files::flush(source);
  if (rename(source.path().c_str(), destination.path().c_str()) != 0) {
    throw CompressionError::fileOperation("替换文件失败：", errno);
  }
  flushDirectories(destination, source);
}

bool atomicRenameIfAbsent(const URL& source, const URL& destination) {
  files::flush(source);
  int code = 0;
  if (renameat2(AT_FDCWD, source.path().c_str(), AT_FDCWD, destination.path().c_str(), RENAME_NOREPLACE) !=
      0) {
    code = errno;
    if (isMissingFlag(code)) code = linkAndUnlink(source, destination);
  }
  if (code == EEXIST) return false;
  if (code != 0) throw CompressionError::fileOperation("保存 PNG 失败：", code);
  flushDirectories(destination, source);
  return true;
}

Exchange atomicExchange(const URL& waiting, const URL& destination) {
  if (renameat2(AT_FDCWD, waiting.path().c_str(), AT_FDCWD, destination.path().c_str(), RENAME_EXCHANGE) !=
      0) {
    if (isMissingFlag(errno)) return Exchange::unsupported;
    if (errno == ENOENT) return Exchange::vanished;
    throw CompressionError::fileOperation("替换文件失败：", errno);
  }
  // What was displaced first: so there is no moment at which the disk has neither name of it.
  flushDirectories(waiting, destination);
  return Exchange::done;
}

}  // namespace tidewell
