// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell::files {
namespace {

/// A directory on the way down to the one that is being emptied.
struct Level {
  std::string name;
  dev_t device = 0;
  ino_t inode = 0;
  std::vector<std::string> folders;  ///< still to be removed from it
};

FileError failed(const URL& tree, int code = errno) {
  return {"删除", tree.path(), code};
}

Descriptor openFolder(int parent, const std::string& name, const URL& tree) {
  Descriptor folder(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) throw failed(tree);
  return folder;
}

struct stat identity(int folder, const URL& tree) {
  struct stat info {};
  if (fstat(folder, &info) != 0) throw failed(tree);
  return info;
}

/// Removes all that is no directory.
Level removeFiles(int folder, std::string name, const URL& tree) {
  const struct stat info = identity(folder, tree);
  Level level{std::move(name), info.st_dev, info.st_ino, {}};
  for (auto& entry : namesInDirectory(openFolder(folder, ".", tree), tree)) {
    if (unlinkat(folder, entry.c_str(), 0) == 0 || errno == ENOENT) continue;
    if (errno != EISDIR) throw failed(tree);
    level.folders.push_back(std::move(entry));
  }
  return level;
}

/// Down by names and up by "..", so that no depth exhausts the descriptors or the length of a path.
void removeTree(const URL& tree) {
  Descriptor folder = openFolder(AT_FDCWD, tree.path(), tree);
  std::vector<Level> levels{removeFiles(folder.get(), tree.path(), tree)};
  for (;;) {
    if (!levels.back().folders.empty()) {
      std::string name = std::move(levels.back().folders.back());
      levels.back().folders.pop_back();
      folder = openFolder(folder.get(), name, tree);
      levels.push_back(removeFiles(folder.get(), std::move(name), tree));
      continue;
    }
    const std::string name = std::move(levels.back().name);
    levels.pop_back();
    if (levels.empty()) break;
    folder = openFolder(folder.get(), "..", tree);
    const struct stat info = identity(folder.get(), tree);
    // Somebody who moved the directory away must not make us remove things elsewhere.
    if (info.st_dev != levels.back().device || info.st_ino != levels.back().inode) throw failed(tree, ESTALE);
    if (unlinkat(folder.get(), name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) throw failed(tree);
  }
  if (rmdir(tree.path().c_str()) != 0) throw failed(tree);
}

}  // namespace

void removeItem(const URL& url) {
  if (unlink(url.path().c_str()) == 0) return;
  if (errno != EISDIR) throw failed(url);
  removeTree(url);
}

void removeItemIfPossible(const URL& url) noexcept {
  try {
    removeItem(url);
  } catch (...) {
  }
}

}  // namespace tidewell::files
