// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Stop.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <list>
#include <mutex>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

/// A real-time signal that nothing else in the service uses. Its handler does nothing; it is installed
/// without SA_RESTART, so that its arrival ends a blocking call.
int kickSignal() {
  static const int number = [] {
    const int signal = SIGRTMIN + 6;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
    return signal;
  }();
  return number;
}

sigset_t only(int signal) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  return set;
}

}  // namespace

struct StopToken::State {
  std::atomic<bool> requested = false;
  // Two ends of a pipe in which nothing is ever written. The request closes the one, which cannot fail, and
  // the other then shows for good that it hangs up. Guarded by `mutex`; none before anybody watches.
  Descriptor watchedEnd;
  Descriptor heldEnd;
  std::mutex mutex;
  std::condition_variable sectionEnded;
  std::list<pthread_t> sections;  ///< threads inside an `Interruptible`
  std::list<State*> parts;        ///< stopped together with this; each leaves the list before it goes
};

struct StopToken::Interruptible::Registration {
  std::shared_ptr<State> state;
  std::list<pthread_t>::iterator position;
  sigset_t previousMask;
};

bool StopToken::stopRequested() const noexcept {
  return state_ && state_->requested;
}

void StopToken::throwIfStopped() const {
  if (stopRequested()) throw Interrupted();
}

int StopToken::descriptor() const {
  if (!state_) return -1;
  const std::lock_guard lock(state_->mutex);
  if (!state_->watchedEnd) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw FileError("创建", "pipe", errno);
    state_->watchedEnd = Descriptor(ends[0]);
    state_->heldEnd = Descriptor(ends[1]);
    if (state_->requested) state_->heldEnd.reset();
  }
  return state_->watchedEnd.get();
}

StopToken::Interruptible::Interruptible(const StopToken& token) {
  if (!token.state_) return;
  registration_ = std::make_unique<Registration>();
  registration_->state = token.state_;
  const sigset_t kick = only(kickSignal());
  const std::lock_guard lock(token.state_->mutex);
  registration_->position = token.state_->sections.insert(token.state_->sections.end(), pthread_self());
  pthread_sigmask(SIG_UNBLOCK, &kick, &registration_->previousMask);
}

StopToken::Interruptible::~Interruptible() {
  if (!registration_) return;
  State& state = *registration_->state;
  {
    const std::lock_guard lock(state.mutex);
    state.sections.erase(registration_->position);
    state.sectionEnded.notify_all();
  }
  // No signal is sent any more, but one may be on its way. Entering the kernel once delivers it here, so that
  // it cannot interrupt a later call of this thread.
  const sigset_t kick = only(kickSignal());
  pthread_sigmask(SIG_UNBLOCK, &kick, nullptr);
  pthread_sigmask(SIG_SETMASK, &registration_->previousMask, nullptr);
}

StopSource::StopSource() : state_(std::make_shared<StopToken::State>()) {}

StopSource::StopSource(const StopToken& whole, const StopToken& other) : StopSource() {
  becomePartOf(whole);
  becomePartOf(other);
}

void StopSource::becomePartOf(const StopToken& whole) {
  if (!whole.state_) return;
  wholes_.push_back(whole.state_);
  {
    const std::lock_guard lock(whole.state_->mutex);
    whole.state_->parts.push_back(state_.get());
  }
  if (whole.stopRequested()) requestStop();
}

StopSource::~StopSource() {
  for (const auto& whole : wholes_) {
    const std::lock_guard lock(whole->mutex);
    whole->parts.remove(state_.get());
  }
}

void StopSource::requestStop() {
  StopToken::request(*state_);
}

void StopToken::request(State& state) {
  state.requested = true;
  // A thread may check the token just before the request and enter its call just after the signal, so one
  // signal is not enough. The list holds only threads that live: each leaves it, under the mutex, by itself.
  using namespace std::chrono_literals;
  std::unique_lock lock(state.mutex);
  state.heldEnd.reset();
  for (State* const part : state.parts) request(*part);
  while (!state.sections.empty()) {
    for (const pthread_t thread : state.sections) pthread_kill(thread, kickSignal());
    state.sectionEnded.wait_for(lock, 1ms);
  }
}

}  // namespace tidewell
