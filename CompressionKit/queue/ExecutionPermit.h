// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What a job holds while it compresses a file: an exclusive lock for the file and one of `capacity` slots,
/// both flock(2) locks on lock files that all cooperating processes share.
class ExecutionPermit {
 public:
  /// Blocks until both are held: the file's lock first, so that a job waiting for its file holds no slot.
  /// Throws `FileError` when the directory cannot be made, `CompressionError::fileOperation` when a lock
  /// cannot be taken, `Interrupted` when a stop is requested meanwhile.
  ExecutionPermit(const URL& directory, const std::string& key, int capacity, const StopToken& stop = {});
  ExecutionPermit(const ExecutionPermit&) = delete;
  ExecutionPermit& operator=(const ExecutionPermit&) = delete;
  ~ExecutionPermit() { release(); }

  /// Frees the slot, then the file. Calling it again does nothing.
  void release();

  /// The file's lock file in the directory: whoever sees it opened knows that a job has begun.
  static std::string fileLockName(const std::string& key);

 private:
  static Descriptor openLock(const URL& url);
  Descriptor fileDescriptor_;
  Descriptor capacityDescriptor_;
};

}  // namespace tidewell
