// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <linux/filter.h>
#include <sys/resource.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What a program that parses hostile bytes may touch beside what every program needs to run: itself, the
/// system's libraries, /dev/null and its like. It cannot reach other files, sockets or processes, start
/// programs, or change a file's mode, owner, times or attributes; what it was given open stays usable.
struct Confinement {
  /// What holds it in: Landlock for files, a seccomp filter for everything else but size.
  struct Means {
    int landlockABI = 0;  ///< 0: not used
    bool seccomp = false;
    bool limits = false;  ///< of the resources below

    bool operator==(const Means&) const = default;
  };
  /// What the kernel offers to this process, asked anew with each call. Nothing where the environment says
  /// TIDEWELL_CONFINE=off: stand-ins for tools that start programs themselves need that.
  static Means available();

  // Links are followed when the program is started. A path that does not exist by then stays out of reach.
  std::vector<URL> readable = {};  ///< files, or directories with everything below
  /// The same, but may be read as well; in a directory, files may also be made, renamed and removed.
  std::vector<URL> writable = {};
  // In bytes: the address space that it may use, and how far a file that it writes may grow.
  std::optional<std::uint64_t> maximumMemory = std::nullopt;
  std::optional<std::uint64_t> maximumFileSize = std::nullopt;
  /// The best the kernel has, unless told otherwise. Without any, the program runs unconfined.
  Means means = available();
};

/// A confinement made ready for one child: everything that allocates happens here, in the parent.
class ChildConfinement {
 public:
  /// None at all.
  ChildConfinement() = default;
  /// Throws `FileError` when the kernel refuses what it offers.
  ChildConfinement(const Confinement& confinement, const URL& executable);

  /// Confines the calling process, which may be a child that shares our memory: system calls only. Returns
  /// 0 or the errno of a failure. Afterwards only `execute` starts a program.
  int apply() noexcept;
  /// execve with the key that the filter asks for, so that the program itself cannot call it. Returns only
  /// after a failure.
  void execute(const char* path, char* const* arguments, char* const* environment) const noexcept;

 private:
  void limit(int resource, std::optional<std::uint64_t> bytes);

  std::vector<std::pair<int, rlimit>> limits_;
  Descriptor ruleset_;
  std::vector<sock_filter> filter_;
  std::uint64_t executionKey_ = 0;
};

}  // namespace tidewell
