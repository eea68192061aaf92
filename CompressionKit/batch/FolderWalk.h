// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "CompressionKit/batch/PathSource.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

struct WalkOptions {
  bool hidden = false;  ///< with names that begin with "."; directories of our own stay left out
  /// Shell patterns (fnmatch): what matches in a folder, by its name or by its path from the named folder on,
  /// is left out, folders with all that is in them. Named paths are not asked.
  std::vector<std::string> excludes = {};
  /// These folders are not walked, whatever their names: where the copies go, where the backups lie.
  std::vector<URL> leftOut = {};
};

/// What a walk finds: a file, or in its place an error.
struct Found {
  URL url;
  /// Where a copy goes below a folder, as `cp -r` puts it: from the last component of the named path on.
  std::string treePath;
  bool isNamed = false;    ///< not found in a folder
  std::int64_t bytes = 0;  ///< as the directory says; 0 with an error
  std::exception_ptr error;
};

/// The files that some paths name, and those of supported kinds in the folders that they name, in the order
/// of the paths and then of the names (bytes). Of each folder on the way down the names are held and nothing
/// else, so a tree of any size costs little, and the first file comes at once; only what tells a file named
/// twice grows, by some 100 bytes a file. A file comes once, also when paths overlap: hard links are other
/// files.
///
/// Links, hidden entries and backups in folders are left out; a named link to a folder is followed. A
/// path that leads nowhere and a folder that cannot be read come as an error, and the walk goes on. A named
/// path that is no folder comes whatever it is.
class FolderWalk {
 public:
  FolderWalk(PathSource paths, WalkOptions options, StopToken stop = {});
  FolderWalk(FolderWalk&&) noexcept;
  ~FolderWalk();

  /// Nothing after the last, and once a stop was requested. Throws what the source throws.
  std::optional<Found> next();

 private:
  struct Level;
  static std::string identity(const struct stat& info);
  std::optional<Found> named(const std::string& path);
  std::optional<Found> entry();
  std::optional<Found> enter(const URL& folder, std::string treePath, bool isNamed);
  bool isLeftOut(const std::string& name, const std::string& path) const;
  bool isNew(const std::string& folder, std::string_view name);

  PathSource paths_;
  WalkOptions options_;
  StopToken stop_;
  std::vector<Level> levels_;  ///< down to the folder that is being walked
  std::unordered_set<std::string> seen_;
};

}  // namespace tidewell
