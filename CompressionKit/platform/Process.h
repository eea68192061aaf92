#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A child process: started by path with an argument vector, standard output and error on given
/// descriptors, in a process group of its own. It dies with the thread that started it (and so with the
/// service, also by SIGKILL), and the destructor kills and reaps it.
class Process {
 public:
  struct Launch {
    URL executable;
    std::vector<std::string> arguments;    ///< without the program's name
    std::vector<std::string> environment;  ///< "NAME=value"
    int standardOutput = 1;
    int standardError = 2;
  };
  /// Throws `FileError` when the program cannot be started. Signal mask and handlers are the defaults in
  /// the child; every other descriptor of ours is closed on exec.
  explicit Process(const Launch& launch);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  enum class Wait { exited, timedOut, stopped };
  /// Sleeps until the child has ended, the time is up or a stop was requested, without polling.
  Wait waitUntil(std::chrono::steady_clock::time_point deadline, const StopToken& stop);

  /// SIGTERM to the child's group, SIGKILL after `grace` if it is still there; returns when it is reaped.
  void terminate(std::chrono::duration<double> grace);

  /// The exit status, or the signal's number for a child ended by a signal. Only after it has ended.
  int terminationStatus() const;

  pid_t identifier() const { return pid_; }

 private:
  void reap();
  pid_t pid_ = -1;
  Descriptor pidDescriptor_;
  std::optional<int> status_;
};

/// The environment of this process as "NAME=value" strings.
std::vector<std::string> currentEnvironment();

}  // namespace tidewell
