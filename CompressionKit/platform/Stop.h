// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <memory>
#include <vector>

namespace tidewell {

/// Whether this piece of work was asked to end early. Cheap to copy; a default token is never stopped.
class StopToken {
 public:
  StopToken() = default;

  bool stopRequested() const noexcept;
  /// Throws `Interrupted` once a stop was requested.
  void throwIfStopped() const;
  /// For use with poll(2), which returns with POLLHUP set once a stop was requested; -1 for a default token
  /// (poll ignores it). Owned by the source and its tokens. It is made when it is first asked for, which
  /// throws `FileError` when no descriptor is left.
  int descriptor() const;

  /// While one of these lives, a stop request sends signals to this thread until it is gone, so that a
  /// blocking system call returns with EINTR. Check the token before the call and after each EINTR. Keep the
  /// section small: nothing in it may mind being interrupted, and `requestStop` waits for its end.
  class Interruptible {
   public:
    explicit Interruptible(const StopToken& token);
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;
    ~Interruptible();

   private:
    struct Registration;
    std::unique_ptr<Registration> registration_;
  };

 private:
  friend class StopSource;
  struct State;
  static void request(State& state);
  explicit StopToken(std::shared_ptr<State> state) : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

class StopSource {
 public:
  StopSource();
  /// For a part of some work: a stop of the whole stops it, too. It may be a part of two.
  explicit StopSource(const StopToken& whole, const StopToken& other = {});
  StopSource(const StopSource&) = delete;
  StopSource& operator=(const StopSource&) = delete;
  ~StopSource();
  StopToken token() const { return StopToken(state_); }
  /// Returns when every `Interruptible` section of the token has ended. Must not be called from a signal
  /// handler or inside such a section. Calling it again does nothing.
  void requestStop();

 private:
  void becomePartOf(const StopToken& whole);
  std::shared_ptr<StopToken::State> state_;
  std::vector<std::shared_ptr<StopToken::State>> wholes_;
};

}  // namespace tidewell
