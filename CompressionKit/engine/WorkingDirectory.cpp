#include "CompressionKit/engine/WorkingDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <string>
#include <string_view>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

constexpr std::string_view prefix = ".tidewell-";

Descriptor openDirectory(const URL& url) {
  return Descriptor(open(url.path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Has the name of a working directory, to the letter.
bool isWorkingDirectory(std::string_view name) {
  return name.starts_with(prefix) && UUID::parse(name.substr(prefix.size()));
}

/// Takes the lock of an abandoned one: it cannot become a live one, which is locked as soon as it is made.
bool isAbandoned(const Descriptor& directory) {
  struct stat info {};
  if (!directory || fstat(directory.get(), &info) != 0) return false;
  const double age = Date::now().since1970() - static_cast<double>(info.st_mtim.tv_sec);
  return age > WorkingDirectory::abandonedAfter && flock(directory.get(), LOCK_EX | LOCK_NB) == 0;
}

void removeAbandoned(const URL& folder) noexcept {
  try {
    for (const auto& name : files::namesInDirectory(folder)) {
      if (!isWorkingDirectory(name)) continue;
      const URL entry = folder.appending(name);
      const Descriptor directory = openDirectory(entry);
      if (isAbandoned(directory)) files::removeItemIfPossible(entry);
    }
  } catch (const std::exception&) {  // a folder that can be written to but not listed
  }
}

}  // namespace

WorkingDirectory::WorkingDirectory(const URL& folder)
    : url_(folder.appending(std::string(prefix) + UUID::random().string())) {
  removeAbandoned(folder);
  files::createDirectory(url_, 0700);
  lock_ = openDirectory(url_);
  // Without a lock, on a file system that has none, age alone protects the directory.
  if (lock_) flock(lock_.get(), LOCK_EX | LOCK_NB);
}

WorkingDirectory::~WorkingDirectory() {
  files::removeItemIfPossible(url_);
}

}  // namespace tidewell
