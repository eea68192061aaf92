// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/WorkingDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

constexpr std::string_view prefix = ".tidewell-";

Descriptor openDirectory(const URL& url) {
  return Descriptor(open(url.path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

WorkingDirectory::WorkingDirectory(const URL& folder)
    : url_(folder.appending(std::string(prefix) + UUID::random().string())) {
  files::createDirectory(url_, 0700);
  lock_ = openDirectory(url_);
  // Without a lock, on a file system that has none, age alone protects the directory.
  if (lock_) flock(lock_.get(), LOCK_EX | LOCK_NB);
}

WorkingDirectory::~WorkingDirectory() {
  if (!kept_) files::removeItemIfPossible(url_);
}

bool WorkingDirectory::isName(std::string_view name) {
  return name.starts_with(prefix) && UUID::isCanonical(name.substr(prefix.size()));
}

Descriptor WorkingDirectory::adopt(const URL& url) {
  Descriptor directory = openDirectory(url);
  struct stat info {};
  if (!directory || fstat(directory.get(), &info) != 0 || info.st_uid != geteuid()) return {};
  if (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) return {};
  return directory;
}

}  // namespace tidewell
