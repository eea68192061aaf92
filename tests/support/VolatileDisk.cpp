// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/VolatileDisk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

namespace tidewell::test {
namespace {

namespace fs = std::filesystem;

std::string contents(int descriptor) {
  std::string data;
  char buffer[4096];
  ssize_t count = 0;
  while ((count = pread(descriptor, buffer, sizeof buffer, static_cast<off_t>(data.size()))) > 0) {
    data.append(buffer, static_cast<std::size_t>(count));
  }
  return data;
}

std::string folderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

VolatileDisk::VolatileDisk(std::string root) : root_(std::move(root)) {
  for (const auto& found : fs::recursive_directory_iterator(root_)) {
    names_[found.path()] = entry(found.path(), true);
  }
}

/// What stands under a name now.
VolatileDisk::Entry VolatileDisk::entry(const std::string& path, bool onDisk) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return {};
  if (S_ISDIR(info.st_mode)) return {Entry::Kind::directory, info.st_ino};
  if (!files_.contains(info.st_ino)) {
    File file{Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), ""};
    if (onDisk) file.flushed = contents(file.descriptor.get());
    files_.emplace(info.st_ino, std::move(file));
  }
  return {Entry::Kind::file, info.st_ino};
}

void VolatileDisk::changed(const std::vector<std::string>& paths) {
  Change change;
  for (const auto& path : paths) change.emplace_back(path, entry(path));
  const bool isDirectory = change.back().second.kind == Entry::Kind::directory;
  if (change.size() > 1 && isDirectory) throw std::runtime_error("a directory was moved: " + paths.back());
  journal_.push_back(std::move(change));
}

void VolatileDisk::flushed(int descriptor) {
  struct stat info {};
  char path[4096] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  if (fstat(descriptor, &info) != 0 || readlink(link.c_str(), path, sizeof path - 1) < 0) return;
  if (S_ISDIR(info.st_mode)) {
    flushDirectory(path);
  } else {
    File& file = files_.at(entry(path).inode);
    file.flushed = contents(file.descriptor.get());
  }
}

void VolatileDisk::apply(const Change& change) {
  for (const auto& [path, found] : change) names_[path] = found;
}

/// The changes to the directory, and of the earlier ones those that they rest on: what was done to the same
/// names, and how the directories that they name came to be.
void VolatileDisk::flushDirectory(const std::string& directory) {
  std::set<std::string> needed;
  std::vector<Change> flushed, left;
  for (; !journal_.empty(); journal_.pop_back()) {
    Change& change = journal_.back();
    const bool concerned = std::ranges::any_of(change, [&](const auto& name) {
      return folderOf(name.first) == directory || needed.contains(name.first);
    });
    if (concerned) {
      for (const auto& [path, found] : change) {
        for (std::string part = path; part.size() > root_.size(); part = folderOf(part)) needed.insert(part);
      }
    }
    (concerned ? flushed : left).push_back(std::move(change));
  }
  for (auto change = flushed.rbegin(); change != flushed.rend(); ++change) apply(*change);
  journal_.assign(std::make_move_iterator(left.rbegin()), std::make_move_iterator(left.rend()));
}

void VolatileDisk::losePower(Lost lost) {
  if (lost == Lost::data) {
    for (const auto& change : journal_) apply(change);
  }
  std::map<ino_t, std::string> data;
  for (auto& [inode, file] : files_) {
    data[inode] = lost == Lost::names ? contents(file.descriptor.get()) : file.flushed;
  }
  for (const auto& found : fs::directory_iterator(root_)) fs::remove_all(found.path());
  for (const auto& [path, found] : names_) {  // in order: a directory comes before what is in it
    if (found.kind == Entry::Kind::nothing || !fs::is_directory(folderOf(path))) continue;
    if (found.kind == Entry::Kind::directory) {
      fs::create_directory(path);
    } else {
      std::ofstream(path, std::ios::binary) << data[found.inode];
    }
  }
}

}  // namespace tidewell::test
