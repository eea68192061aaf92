// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Confinement.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A child process: started by path with an argument vector, standard output and error on given
/// descriptors, in a process group of its own. The destructor kills and reaps it.
///
/// The kernel kills it when the *thread* that started it ends, and so when the service ends in whatever way,
/// SIGKILL included. Start it from a thread that outlives it, best from the one that waits for it.
/// Processes that the child starts itself die with its group when it is terminated or has ended, but only the
/// child dies with a service that was killed. Used by one thread at a time.
class Process {
 public:
  struct Launch {
    URL executable;
    std::vector<std::string> arguments;    ///< without the program's name
    std::vector<std::string> environment;  ///< "NAME=value"
    int standardInput = -1;                ///< without one it is ours
    int standardOutput = 1;
    int standardError = 2;
    std::vector<int> descriptors = {};                      ///< more that it gets, as 3, 4, ...
    std::optional<Confinement> confinement = std::nullopt;  ///< without one it may do what we may
  };
  /// Throws `FileError` when the program cannot be started. Signal mask and handlers are the defaults in
  /// the child; every other descriptor of ours is closed on exec.
  explicit Process(const Launch& launch);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  enum class Wait { exited, timedOut, stopped };
  /// Sleeps until the child has ended, the time is up or a stop was requested, without polling. An end that
  /// has happened counts before the others.
  Wait waitUntil(std::chrono::steady_clock::time_point deadline, const StopToken& stop);

  /// SIGTERM to the child's group, SIGKILL after `grace` if it is still there; returns when it is reaped.
  void terminate(std::chrono::duration<double> grace);

  /// The exit status, or the signal's number for a child ended by a signal. Only after it has ended.
  int terminationStatus() const { return status_.value(); }

  pid_t identifier() const { return pid_; }

 private:
  void reap();
  pid_t pid_ = -1;
  Descriptor pidDescriptor_;
  std::optional<int> status_;
};

/// The environment of this process as "NAME=value" strings.
std::vector<std::string> currentEnvironment();

/// The moment `seconds` from now. Without overflow: anything that is not positive counts as now, anything
/// beyond ten years as ten years.
std::chrono::steady_clock::time_point deadlineAfter(double seconds);

}  // namespace tidewell
