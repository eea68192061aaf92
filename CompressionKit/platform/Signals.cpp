// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Signals.h"

#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iterator>
#include <utility>

#include "CompressionKit/platform/Error.h"

namespace tidewell {

TerminationSignals::TerminationSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction current {};
    sigaction(signal, nullptr, &current);
    if (current.sa_handler != SIG_IGN) sigaddset(&set, signal);
  }
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!descriptor_) throw FileError("创建", "signalfd", errno);
}

int TerminationSignals::take() const {
  signalfd_siginfo info{};
  return read(descriptor_.get(), &info, sizeof info) == sizeof info ? static_cast<int>(info.ssi_signo) : 0;
}

int TerminationSignals::takeAll() const {
  const int first = take();
  while (take() != 0) {
  }
  return first;
}

SignalWatch::SignalWatch(const TerminationSignals& signals, std::function<void()> action)
    : thread_([&signals, action = std::move(action), ended = ended_.token().descriptor()] {
        pthread_setname_np(pthread_self(), "signals");
        pollfd watched[] = {{.fd = signals.descriptor(), .events = POLLIN, .revents = 0},
                            {.fd = ended, .events = POLLIN, .revents = 0}};
        while (poll(watched, std::size(watched), -1) < 0 && errno == EINTR) {
        }
        if (watched[0].revents != 0) action();
      }) {}

SignalWatch::~SignalWatch() {
  ended_.requestStop();
  thread_.join();
}

}  // namespace tidewell
