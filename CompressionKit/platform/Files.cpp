// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Leftovers.h"

namespace tidewell::files {
namespace {

Descriptor open(const URL& url, int flags, FileAction action, mode_t mode = 0) {
  for (;;) {
    const int descriptor = ::open(url.path().c_str(), flags | O_CLOEXEC, mode);
    if (descriptor >= 0) return Descriptor(descriptor);
    if (errno != EINTR) throw FileError(action, url.path(), errno);
  }
}

void flush(int descriptor, const URL& url) {
  while (fsync(descriptor) != 0) {
    if (errno == EINTR) continue;
    if (errno == EINVAL || errno == EROFS) return;  // a file system that has nothing to flush
    throw FileError("写入", url.path(), errno);
  }
}

std::int64_t nanoseconds(const timespec& time) {
  return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

/// Makes one directory. Another process may make the same one meanwhile, which is as good, or remove it
/// again.
void makeDirectory(const std::string& path, mode_t mode) {
  constexpr int maximumAttempts = 100;
  for (int attempt = 1; mkdir(path.c_str(), mode) != 0; ++attempt) {
    const int code = errno;
    struct stat info {};
    const bool stands = stat(path.c_str(), &info) == 0;
    if (code == EEXIST && stands && S_ISDIR(info.st_mode)) return;
    if (code != EEXIST || stands || attempt == maximumAttempts) throw FileError("创建文件夹", path, code);
  }
}

void visitDirectory(Descriptor descriptor, const URL& directory, const DirectoryVisitor& visit) {
  const auto close = [](DIR* stream) { closedir(stream); };
  const std::unique_ptr<DIR, decltype(close)> stream(fdopendir(descriptor.get()), close);
  if (!stream) throw FileError("读取文件夹", directory.path(), errno);
  descriptor.release();
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (!entry) break;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    struct stat info {};
    const bool isDirectory = entry->d_type == DT_DIR ||
                             (entry->d_type == DT_UNKNOWN &&  // a file system that does not tell
                              fstatat(dirfd(stream.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                              S_ISDIR(info.st_mode));
    visit(name, isDirectory);
  }
  if (errno != 0) throw FileError("读取文件夹", directory.path(), errno);
}

}  // namespace

bool exists(const URL& url) {
  return access(url.path().c_str(), F_OK) == 0;
}

bool isExecutableFile(const URL& url) {
  struct stat info {};
  return stat(url.path().c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         access(url.path().c_str(), X_OK) == 0;
}

ResourceValues resourceValues(const URL& url) {
  struct stat info {};
  if (lstat(url.path().c_str(), &info) != 0) throw FileError("读取", url.path(), errno);
  return {.isRegularFile = S_ISREG(info.st_mode),
          .isSymbolicLink = S_ISLNK(info.st_mode),
          .isDirectory = S_ISDIR(info.st_mode),
          .bytes = info.st_size,
          .modifiedAt = nanoseconds(info.st_mtim),
          .changedAt = nanoseconds(info.st_ctim),
          .device = info.st_dev,
          .inode = info.st_ino,
          .owner = info.st_uid};
}

bool liesBelow(const URL& url, const URL& directory) {
  const auto opened = [](int folder, const char* path) {
    return Descriptor(openat(folder, path, O_PATH | O_DIRECTORY | O_CLOEXEC, 0));
  };
  const auto identity = [&](const Descriptor& folder) {
    struct stat info {};
    if (fstat(folder.get(), &info) != 0) throw FileError("读取", url.path(), errno);
    return std::pair(info.st_dev, info.st_ino);
  };
  const Descriptor sought = opened(AT_FDCWD, directory.path().c_str());
  if (!sought && errno == ENOENT) return false;
  if (!sought) throw FileError("打开", directory.path(), errno);
  const auto wanted = identity(sought);
  Descriptor folder = opened(AT_FDCWD, url.deletingLastPathComponent().path().c_str());
  for (std::optional<decltype(identity(folder))> below;;) {
    if (!folder) throw FileError("打开", url.path(), errno);
    const auto current = identity(folder);
    if (current == wanted) return true;
    if (current == below) return false;  // the parent of "/" is "/"
    below = current;
    folder = opened(folder.get(), "..");
  }
}

Times times(const URL& url) {
  struct stat info {};
  if (lstat(url.path().c_str(), &info) != 0) throw FileError("读取", url.path(), errno);
  return {.accessed = info.st_atim, .modified = info.st_mtim};
}

bool isOpenForWriting(const URL& url) {
  const Descriptor file = open(url, O_RDONLY | O_NONBLOCK | O_NOFOLLOW, "打开");
  // Whoever opens it for writing meanwhile makes the kernel signal us: with a signal that is ignored, for the
  // usual one ends a process.
  fcntl(file.get(), F_SETSIG, SIGURG);
  if (fcntl(file.get(), F_SETLEASE, F_RDLCK) != 0) return errno == EAGAIN;
  fcntl(file.get(), F_SETLEASE, F_UNLCK);
  return false;
}

void visitDirectory(const URL& directory, const DirectoryVisitor& visit) {
  visitDirectory(open(directory, O_RDONLY | O_DIRECTORY, "读取文件夹"), directory, visit);
}

std::vector<std::string> namesInDirectory(const URL& directory) {
  return namesInDirectory(open(directory, O_RDONLY | O_DIRECTORY, "读取文件夹"), directory);
}

std::vector<std::string> namesInDirectory(Descriptor descriptor, const URL& directory) {
  std::vector<std::string> names;
  visitDirectory(std::move(descriptor), directory,
                 [&](std::string_view name, bool) { names.emplace_back(name); });
  return names;
}

std::vector<URL> contentsOfDirectory(const URL& directory) {
  std::vector<URL> entries;
  for (const auto& name : namesInDirectory(directory)) entries.push_back(directory.appending(name));
  return entries;
}

Descriptor openForReading(const URL& url) {
  try {
    return open(url, O_RDONLY | O_NOATIME, "打开");
  } catch (const FileError& error) {
    if (error.code() != EPERM) throw;  // a file of somebody else's
    return open(url, O_RDONLY, "打开");
  }
}

std::size_t readFully(int descriptor, void* buffer, std::size_t size, const URL& url) {
  std::size_t total = 0;
  while (total < size) {
    const ssize_t count = ::read(descriptor, static_cast<char*>(buffer) + total, size - total);
    if (count == 0) break;
    if (count > 0) {
      total += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      throw FileError("读取", url.path(), errno);
    }
  }
  return total;
}

void writeFully(int descriptor, const void* data, std::size_t size, const URL& url) {
  std::size_t total = 0;
  while (total < size) {
    const ssize_t count = ::write(descriptor, static_cast<const char*>(data) + total, size - total);
    if (count >= 0) {
      total += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      throw FileError("写入", url.path(), errno);
    }
  }
}

std::string read(const URL& url, std::size_t maximumBytes) {
  const Descriptor file = openForReading(url);
  constexpr std::size_t piece = 1 << 20;
  struct stat info {};
  std::size_t expected = piece;
  if (fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 0) {
    expected = static_cast<std::size_t>(info.st_size) + 1;  // one more, to meet the end in the first read
  }
  std::string data;
  while (data.size() < maximumBytes) {
    const std::size_t start = data.size();
    const std::size_t wanted = std::min(start == 0 ? expected : piece, maximumBytes - start);
    data.resize(start + wanted);
    const std::size_t count = readFully(file.get(), data.data() + start, wanted, url);
    data.resize(start + count);
    if (count < wanted) break;
  }
  return data;
}

void writeAtomically(const URL& url, std::string_view data, Durability durability, mode_t mode) {
  const URL directory = url.deletingLastPathComponent();
  const URL temporary = directory.appending(temporaryName());
  struct stat existing {};
  const bool replaces = stat(url.path().c_str(), &existing) == 0;
  Descriptor file = open(temporary, O_WRONLY | O_CREAT | O_EXCL, "写入", mode);
  try {
    if (replaces && fchmod(file.get(), existing.st_mode & 07777) != 0) {
      throw FileError("写入", url.path(), errno);
    }
    writeFully(file.get(), data.data(), data.size(), url);
    if (durability == Durability::flushed) flush(file.get(), url);
    if (::close(file.release()) != 0) throw FileError("写入", url.path(), errno);
    if (::rename(temporary.path().c_str(), url.path().c_str()) != 0) {
      throw FileError("写入", url.path(), errno);
    }
  } catch (...) {
    ::unlink(temporary.path().c_str());
    throw;
  }
  if (durability == Durability::flushed) flush(directory);
}

void flush(const URL& url) {
  const Descriptor descriptor = open(url, O_RDONLY, "写入");
  flush(descriptor.get(), url);
}

void createDirectory(const URL& url, mode_t mode) {
  if (mkdir(url.path().c_str(), mode) != 0) throw FileError("创建文件夹", url.path(), errno);
}

void createDirectories(const URL& url, mode_t mode, Durability durability) {
  struct stat info {};
  if (stat(url.path().c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return;
  std::vector<URL> missing;
  for (URL parent = url; parent.path() != "/" && !exists(parent);
       parent = parent.deletingLastPathComponent()) {
    missing.push_back(parent);
  }
  if (missing.empty()) missing.push_back(url);  // something else stands there: let mkdir say what
  for (auto directory = missing.rbegin(); directory != missing.rend(); ++directory) {
    makeDirectory(directory->path(), mode);
    if (durability == Durability::cached) continue;
    try {
      flush(directory->deletingLastPathComponent());
    } catch (const FileError& error) {
      if (error.code() != EACCES) throw;  // a folder that may be written but not read cannot be flushed
    }
  }
}

}  // namespace tidewell::files
