// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <vector>

namespace tidewell {

/// A seccomp program for tools that read files, compute on threads and write files. A call that it does not
/// know "does not exist" (ENOSYS), which makes the C library fall back on older calls where there are any.
struct SystemCallFilter {
  /// Stands for the process that the filter is for, in the instructions that compare with it.
  static constexpr std::uint32_t ownProcess = 0x7FFF'FF01;  // beyond every process number

  std::vector<sock_filter> instructions;
  /// What execve must carry as its fourth argument, which the kernel ignores. Random.
  std::uint64_t executionKey = 0;

  /// The same for the whole life of this process. Throws `FileError`.
  static const SystemCallFilter& forTools();
};

}  // namespace tidewell
