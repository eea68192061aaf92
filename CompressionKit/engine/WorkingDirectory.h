#pragma once

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The hidden directory of one run, ".tidewell-<UUID>" beside the user's file, so that what is made in it can
/// be renamed onto the file. It is locked (flock) while it lives and removed with everything in it at the
/// end.
///
/// A run that was killed leaves its directory behind. The next run in the same folder removes it, if nobody
/// holds its lock and it has not changed for an hour: on a network file system the lock of another machine
/// may be invisible here.
class WorkingDirectory {
 public:
  static constexpr double abandonedAfter = 3600;  ///< seconds

  /// Throws `FileError` when the directory cannot be made.
  explicit WorkingDirectory(const URL& folder);
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;
  ~WorkingDirectory();

  const URL& url() const { return url_; }

 private:
  URL url_;
  Descriptor lock_;
};

}  // namespace tidewell
