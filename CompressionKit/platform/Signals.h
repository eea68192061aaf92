// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <thread>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Stop.h"

namespace tidewell {

/// The signals that ask for the end (SIGINT, SIGTERM, SIGHUP), blocked from now on in this thread and in
/// those that it starts, to be read from a descriptor. One that is ignored (nohup) stays ignored.
class TerminationSignals {
 public:
  /// Make it before any thread exists. Throws `FileError`.
  TerminationSignals();

  int descriptor() const { return descriptor_.get(); }
  /// The next signal that has arrived, or 0.
  int take() const;
  /// The first signal that has arrived, or 0; takes them all.
  int takeAll() const;

 private:
  Descriptor descriptor_;
};

/// Calls a function, on a thread of its own, at the first signal that arrives in its lifetime. The signal
/// stays to be taken.
class SignalWatch {
 public:
  SignalWatch(const TerminationSignals& signals, std::function<void()> action);
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  ~SignalWatch();

 private:
  StopSource ended_;
  std::thread thread_;
};

}  // namespace tidewell
