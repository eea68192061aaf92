// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"

namespace tidewell::test {

/// What of a folder is on the disk, and what only in memory. A file's data is flushed by fsync of the file,
/// names by fsync of their directory; a rename, also between two directories, is one step of the journal and
/// brings along what it rests on. Everything that is there at first is on the disk.
class VolatileDisk {
 public:
  /// What a power loss takes, of all that was not flushed. Real disks lose any part of it.
  enum class Lost { everything, data, names };

  explicit VolatileDisk(std::string root);

  /// After one call that changed what stands under these absolute paths.
  void changed(const std::vector<std::string>& paths);
  void flushed(int descriptor);

  /// Makes the folder what it is after the next start.
  void losePower(Lost lost);

 private:
  struct Entry {
    enum class Kind { nothing, file, directory } kind = Kind::nothing;
    ino_t inode = 0;
  };
  using Change = std::vector<std::pair<std::string, Entry>>;  ///< what stands under which name afterwards
  struct File {
    Descriptor descriptor;  ///< held, so that the number is not used again
    std::string flushed;
  };

  Entry entry(const std::string& path, bool onDisk = false);
  void flushDirectory(const std::string& directory);
  void apply(const Change& change);

  std::string root_;
  std::map<std::string, Entry> names_;  ///< on the disk
  std::map<ino_t, File> files_;
  std::vector<Change> journal_;  ///< in memory
};

}  // namespace tidewell::test
