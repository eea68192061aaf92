// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/FolderWalk.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <utility>

#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/UndoStore.h"

namespace tidewell {
namespace {

bool isOurs(std::string_view name) {
  return name.starts_with(".tidewell-");
}

/// Without "." and repeated slashes, which mean nothing; ".." may follow a link, so it stays.
std::string withoutDots(std::string_view path) {
  std::string result;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string_view component = path.substr(start, end - start);
    if (!component.empty() && component != ".") (result += '/') += component;
    start = end + 1;
  }
  return result.empty() ? "/" : result;
}

/// The name that the last component gives to a copy; none where it is a way and no name.
std::string nameOfCopy(std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  const std::string_view last = path.substr(path.rfind('/') + 1);
  return last == "." || last == ".." ? "" : std::string(last);
}

std::string joined(const std::string& treePath, std::string_view name) {
  return treePath.empty() ? std::string(name) : treePath + "/" + std::string(name);
}

bool matches(const std::string& pattern, const std::string& text, int flags) {
  return fnmatch(pattern.c_str(), text.c_str(), flags) == 0;
}

Found failure(const URL& url, std::string treePath, bool isNamed, FileAction action, int code) {
  return {.url = url,
          .treePath = std::move(treePath),
          .isNamed = isNamed,
          .bytes = 0,
          .error = std::make_exception_ptr(FileError(action, url.path(), code))};
}

}  // namespace

/// A folder on the way down to the one that is being walked.
struct FolderWalk::Level {
  URL folder;
  std::string treePath;
  std::size_t belowNamed = 0;  ///< where the path from the named folder on begins in a tree path
  std::string identity;
  std::vector<std::string> names = {};  ///< sorted backwards, those still to come
};

FolderWalk::FolderWalk(PathSource paths, WalkOptions options, StopToken stop)
    : paths_(std::move(paths)), options_(std::move(options)), stop_(std::move(stop)) {
  for (auto& pattern : options_.excludes) {
    while (pattern.size() > 1 && pattern.ends_with('/')) pattern.pop_back();
  }
}

FolderWalk::FolderWalk(FolderWalk&&) noexcept = default;
FolderWalk::~FolderWalk() = default;

std::string FolderWalk::identity(const struct stat& info) {
  return std::to_string(info.st_dev) + "/" + std::to_string(info.st_ino);
}

std::optional<Found> FolderWalk::next() {
  while (!stop_.stopRequested()) {
    std::optional<Found> found;
    if (!levels_.empty()) {
      found = entry();
    } else if (const auto path = paths_()) {
      found = named(*path);
    } else {
      return std::nullopt;
    }
    if (found) return found;
  }
  return std::nullopt;
}

std::optional<Found> FolderWalk::named(const std::string& path) {
  const URL url = URL::file(withoutDots(URL::file(path).path()));
  std::string treePath = nameOfCopy(path);
  struct stat info {};
  if (path.empty() || stat(url.path().c_str(), &info) != 0) {
    return failure(url, std::move(treePath), true, "打开", path.empty() ? ENOENT : errno);
  }
  if (S_ISDIR(info.st_mode)) return enter(url, std::move(treePath), true);
  struct stat parent {};
  if (stat(url.deletingLastPathComponent().path().c_str(), &parent) == 0 &&
      !isNew(identity(parent), url.lastPathComponent())) {
    return std::nullopt;
  }
  return Found{.url = url,
               .treePath = std::move(treePath),
               .isNamed = true,
               .bytes = S_ISREG(info.st_mode) ? std::int64_t{info.st_size} : 0,
               .error = nullptr};
}

/// Gives an error, and otherwise nothing: the folder's entries come next.
std::optional<Found> FolderWalk::enter(const URL& folder, std::string treePath, bool isNamed) {
  // A link is one that was named, or has just taken a folder's place.
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isNamed ? 0 : O_NOFOLLOW);
  Descriptor descriptor(open(folder.path().c_str(), flags, 0));
  struct stat info {};
  if (!descriptor || fstat(descriptor.get(), &info) != 0) {
    return failure(folder, std::move(treePath), isNamed, "读取文件夹", errno);
  }
  Level level{.folder = folder, .treePath = std::move(treePath), .identity = identity(info)};
  // Asked each time: they may be made while others are walked.
  for (const URL& leftOut : options_.leftOut) {
    if (stat(leftOut.path().c_str(), &info) == 0) {
      if (level.identity == identity(info)) return std::nullopt;
    } else if (errno != ENOENT && errno != ENOTDIR) {
      return failure(folder, std::move(level.treePath), isNamed, "读取文件夹", errno);
    }
  }
  level.belowNamed = !isNamed                 ? levels_.back().belowNamed
                     : level.treePath.empty() ? 0
                                              : level.treePath.size() + 1;
  try {
    level.names = files::namesInDirectory(std::move(descriptor), folder);
  } catch (const FileError& error) {
    return failure(folder, std::move(level.treePath), isNamed, "读取文件夹", error.code());
  }
  std::ranges::sort(level.names, std::greater());
  levels_.push_back(std::move(level));
  return std::nullopt;
}

std::optional<Found> FolderWalk::entry() {
  Level& level = levels_.back();
  if (level.names.empty()) {
    levels_.pop_back();
    return std::nullopt;
  }
  const std::string name = std::move(level.names.back());
  level.names.pop_back();
  std::string treePath = joined(level.treePath, name);
  if (isLeftOut(name, treePath.substr(level.belowNamed))) return std::nullopt;

  const URL url = level.folder.appending(name);
  struct stat info {};
  if (lstat(url.path().c_str(), &info) != 0) {
    if (errno == ENOENT) return std::nullopt;  // gone since the folder was listed
    return failure(url, std::move(treePath), false, "读取", errno);
  }
  if (S_ISDIR(info.st_mode)) return enter(url, std::move(treePath), false);
  if (!S_ISREG(info.st_mode) || !ImageKind::from(url) || !isNew(level.identity, name)) return std::nullopt;
  if (UndoStore::isBackup(url)) return std::nullopt;
  return Found{
      .url = url, .treePath = std::move(treePath), .isNamed = false, .bytes = info.st_size, .error = nullptr};
}

bool FolderWalk::isLeftOut(const std::string& name, const std::string& path) const {
  if (isOurs(name) || (!options_.hidden && name.starts_with('.'))) return true;
  return std::ranges::any_of(options_.excludes, [&](const auto& pattern) {
    return matches(pattern, name, 0) || matches(pattern, path, FNM_PATHNAME);
  });
}

bool FolderWalk::isNew(const std::string& folder, std::string_view name) {
  return seen_.insert(folder + "/" + std::string(name)).second;
}

}  // namespace tidewell
