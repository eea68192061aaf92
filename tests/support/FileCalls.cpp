// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// The file calls of the kit, which the linker leads here in test programs (FileCalls.txt). Without a plan in
// the calling thread they go straight on.

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/Faults.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes these names
namespace {

using tidewell::test::Faults;
using tidewell::test::FileCall;

constexpr unsigned asks = FileCall::canFail;
constexpr unsigned changesNames = FileCall::canFail | FileCall::changes;
constexpr unsigned movesFile = changesNames | FileCall::allocates | FileCall::moves;
constexpr unsigned transfersData = FileCall::canFail | FileCall::interruptible;
constexpr unsigned writesData = transfersData | FileCall::allocates | FileCall::changes;

template <typename Real>
auto through(const FileCall& call, Real real) {
  Faults* faults = Faults::current();
  if (!faults) return real();
  if (const int code = faults->before(call)) {
    errno = code;
    return decltype(real()){-1};
  }
  const auto result = real();
  if (result >= 0) faults->after(call);
  return result;
}

unsigned opens(int flags) {
  if ((flags & O_TMPFILE) == O_TMPFILE) return transfersData | FileCall::allocates;
  return transfersData | ((flags & O_CREAT) != 0 ? FileCall::allocates | FileCall::changes : 0U);
}

}  // namespace

extern "C" {

/// Only a file that was written to has something to report; it is closed in any case.
int __real_close(int file);
int __wrap_close(int file) {
  Faults* faults = Faults::current();
  if (!faults || (fcntl(file, F_GETFL) & O_ACCMODE) == O_RDONLY) return __real_close(file);
  const int code =
      faults->before({"close", transfersData | FileCall::allocates | FileCall::isNoMoment, file});
  const int result = __real_close(file);
  if (code == 0) return result;
  errno = code;
  return -1;
}

dirent* __real_readdir64(DIR* stream);
dirent* __wrap_readdir64(DIR* stream) {
  Faults* faults = Faults::current();
  const int code = faults ? faults->before({"readdir", asks | FileCall::isNoMoment, dirfd(stream)}) : 0;
  if (code == 0) return __real_readdir64(stream);
  errno = code;
  return nullptr;
}

int __real_renameat2(int from, const char* source, int to, const char* destination, unsigned flags);
int __wrap_renameat2(int from, const char* source, int to, const char* destination, unsigned flags) {
  Faults* faults = Faults::current();
  if (faults && faults->refuses(flags)) {
    faults->before({"refused rename", 0, from, source, destination});
    errno = EINVAL;
    return -1;
  }
  const char* name = (flags & RENAME_EXCHANGE) != 0    ? "exchange"
                     : (flags & RENAME_NOREPLACE) != 0 ? "exclusive rename"
                                                       : "rename";
  return through({name, movesFile, from, source, destination},
                 [&] { return __real_renameat2(from, source, to, destination, flags); });
}

// The others differ in their arguments only: result, name in the linker, name in messages, traits,
// parameters, arguments, what they are about. (An optional argument arrives here as any other would.)
#define FILE_CALL(Result, symbol, name, traits, parameters, arguments, ...)                 \
  Result __real_##symbol parameters;                                                        \
  Result __wrap_##symbol parameters {                                                       \
    return through({name, traits, __VA_ARGS__}, [&] { return __real_##symbol arguments; }); \
  }

FILE_CALL(int, open64, "open", opens(flags), (const char* path, int flags, mode_t mode), (path, flags, mode),
          AT_FDCWD, path)
FILE_CALL(int, openat64, "open", opens(flags), (int folder, const char* path, int flags, mode_t mode),
          (folder, path, flags, mode), folder, path)
FILE_CALL(int, unlinkat, (flags & AT_REMOVEDIR) != 0 ? "rmdir" : "unlink", changesNames,
          (int folder, const char* path, int flags), (folder, path, flags), folder, path)
FILE_CALL(int, ioctl, "ioctl", asks | FileCall::allocates, (int file, unsigned long request, void* argument),
          (file, request, argument), file)
FILE_CALL(int, access, "access", asks, (const char* path, int mode), (path, mode), AT_FDCWD, path)
FILE_CALL(int, stat64, "stat", asks, (const char* path, struct stat* info), (path, info), AT_FDCWD, path)
FILE_CALL(int, lstat64, "lstat", asks, (const char* path, struct stat* info), (path, info), AT_FDCWD, path)
FILE_CALL(int, fstat64, "fstat", asks, (int file, struct stat* info), (file, info), file)
FILE_CALL(int, fstatat64, "lstat", asks, (int folder, const char* path, struct stat* info, int flags),
          (folder, path, info, flags), folder, path)
FILE_CALL(ssize_t, read, "read", transfersData, (int file, void* data, size_t size), (file, data, size), file)
FILE_CALL(ssize_t, write, "write", writesData, (int file, const void* data, size_t size), (file, data, size),
          file)
FILE_CALL(ssize_t, copy_file_range, "copy_file_range", writesData,
          (int from, off64_t* start, int to, off64_t* end, size_t size, unsigned flags),
          (from, start, to, end, size, flags), to)
FILE_CALL(int, fsync, "fsync", transfersData | FileCall::allocates | FileCall::flushes, (int file), (file),
          file)
FILE_CALL(int, ftruncate64, "truncate", asks | FileCall::changes, (int file, off64_t size), (file, size),
          file)
FILE_CALL(int, flock, "flock", FileCall::interruptible, (int file, int operation), (file, operation), file)
FILE_CALL(int, mkdir, "mkdir", changesNames | FileCall::allocates, (const char* path, mode_t mode),
          (path, mode), AT_FDCWD, path)
FILE_CALL(int, rmdir, "rmdir", changesNames, (const char* path), (path), AT_FDCWD, path)
FILE_CALL(int, unlink, "unlink", changesNames, (const char* path), (path), AT_FDCWD, path)
FILE_CALL(int, rename, "rename", movesFile, (const char* from, const char* to), (from, to), AT_FDCWD, from,
          to)
FILE_CALL(int, link, "link", movesFile, (const char* from, const char* to), (from, to), AT_FDCWD, from, to)
FILE_CALL(int, linkat, "link", movesFile,
          (int folder, const char* from, int other, const char* to, int flags),
          (folder, from, other, to, flags), folder, from, to)
FILE_CALL(int, fchmod, "fchmod", asks, (int file, mode_t mode), (file, mode), file)
FILE_CALL(int, fchown, "fchown", asks, (int file, uid_t user, gid_t group), (file, user, group), file)
FILE_CALL(int, futimens, "futimens", asks, (int file, const timespec* times), (file, times), file)
FILE_CALL(ssize_t, flistxattr, "flistxattr", asks, (int file, char* list, size_t size), (file, list, size),
          file)
FILE_CALL(ssize_t, fgetxattr, "fgetxattr", asks, (int file, const char* name, void* value, size_t size),
          (file, name, value, size), file)
FILE_CALL(int, fsetxattr, "fsetxattr", asks | FileCall::allocates,
          (int file, const char* name, const void* value, size_t size, int flags),
          (file, name, value, size, flags), file)
FILE_CALL(int, fremovexattr, "fremovexattr", asks, (int file, const char* name), (file, name), file)

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
