// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string_view>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A hidden directory ".tidewell-<UUID>" beside a user's file, so that what is made in it can be renamed onto
/// the file. It is locked (flock) while it lives and removed with everything in it at the end; what a killed
/// process leaves, `sweepFolder` removes.
class WorkingDirectory {
 public:
  /// Throws `FileError` when the directory cannot be made.
  explicit WorkingDirectory(const URL& folder);
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  ~WorkingDirectory();

  const URL& url() const { return url_; }

  /// Leaves the directory where it is at the end.
  void keep() { kept_ = true; }

  /// Has the name of a working directory, to the letter.
  static bool isName(std::string_view name);
  /// Opens a working directory of this user that another process may have left, with its lock; nothing for
  /// one that is in use, or of somebody else.
  static Descriptor adopt(const URL& url);

 private:
  URL url_;
  Descriptor lock_;
  bool kept_ = false;
};

}  // namespace tidewell
