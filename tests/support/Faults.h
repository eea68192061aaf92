// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <fcntl.h>
#include <stdio.h>

#include <functional>
#include <string>
#include <vector>

#include "support/VolatileDisk.h"

namespace tidewell::test {

/// A system call on a file as a test sees it (FileCalls.cpp leads those of the kit here).
struct FileCall {
  enum Trait : unsigned {
    canFail = 1,        ///< EIO
    interruptible = 2,  ///< EINTR
    allocates = 4,      ///< ENOSPC
    changes = 8,        ///< names or data
    flushes = 16,       ///< to the disk
    moves = 32,         ///< a file from or to a name
    isNoMoment = 64,    ///< what happens before it may as well happen before the next one
  };
  const char* name;
  unsigned traits;
  int folder = AT_FDCWD;
  const char* path = nullptr;  ///< without one the call is about the descriptor `folder`
  const char* second = nullptr;

  std::string paths() const;
};

/// What shall go wrong with the file calls of this thread while the object lives. The points at which
/// something happens are counted from 1, each kind over the calls for which it makes sense.
///
/// What is asked for after `then` counts from the moment at which everything before has happened.
class Faults {
 public:
  Faults();
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;
  ~Faults();

  /// `code` is EIO, ENOSPC or EINTR; with `lasting` from that point on, as of a disk that is full or broken;
  /// with traits only of calls that have one of them.
  Faults& fail(int point, int code, bool lasting = false, unsigned traits = 0);
  /// The process ends right before a call that would change something: only in a child (`runInChild`).
  Faults& end(int point);
  /// As `end`, and the disk below `root` becomes what it would be after a power loss.
  Faults& losePower(int point, VolatileDisk& disk, VolatileDisk::Lost lost);
  /// Another program acts right before a call; with traits, before one that has one of them.
  Faults& at(int point, std::function<void()> act, unsigned traits = 0);
  Faults& then();

  /// Notes the first call that names this path once everything has happened: "lstat", "rename from" it,
  /// "exchange onto" it. The call at which the last of it happened counts.
  Faults& watch(std::string path);
  const std::string& firstAfterwards() const { return firstAfterwards_; }

  /// The file system has no RENAME_EXCHANGE, or no RENAME_NOREPLACE.
  void refuseExchange() { refused_ |= RENAME_EXCHANGE; }
  void refuseExclusive() { refused_ |= RENAME_NOREPLACE; }

  /// Everything that was asked for has happened.
  bool happened() const;
  /// The call at which the last of it happened: "fsync photo.jpg".
  const std::string& where() const { return where_; }

  /// Runs `work` in a forked process; its exit status is `ended` when the plan ended it, else 0.
  static int runInChild(const std::function<void()>& work);
  /// Ends such a process as a kill does. Counts of coverage are lost, but the other faults go the same ways,
  /// and writing them thousands of times took longer than all tests.
  [[noreturn]] static void leave(int status);
  static constexpr int ended = 42;

  // --- For FileCalls.cpp ---
  static Faults* current();
  /// An errno value that the call is to fail with, or 0.
  int before(const FileCall& call);
  /// The call has succeeded.
  void after(const FileCall& call);
  bool refuses(unsigned renameFlags) const { return (refused_ & renameFlags) != 0; }

 private:
  struct Step {
    int point;
    unsigned traits;
    std::function<int()> act;  ///< returns an errno value or 0
    bool lasting = false;
    int stage = 0;
    int seen = 0;
    bool happened = false;
  };
  Faults& add(Step step);

  std::vector<Step> steps_;
  int stage_ = 0;
  unsigned refused_ = 0;
  VolatileDisk* disk_ = nullptr;
  std::string where_, watched_, firstAfterwards_;
};

}  // namespace tidewell::test
