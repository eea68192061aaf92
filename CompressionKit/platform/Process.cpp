// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Process.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <span>

#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

using Clock = std::chrono::steady_clock;

/// All that the child needs, prepared before it exists: it may neither allocate nor lock.
struct ChildPlan {
  const char* path;
  char* const* arguments;
  char* const* environment;
  std::span<int> descriptors;  ///< what becomes 0, 1, 2, ...; -1: stays as it is
  int failureDescriptor;  ///< beyond those; receives the errno of a failed start; closed by a successful one
  ChildConfinement& confinement;
  pid_t parent;
};

[[noreturn]] void fail(const ChildPlan& plan, int code) {
  [[maybe_unused]] const auto written = write(plan.failureDescriptor, &code, sizeof code);
  _exit(127);
}

/// What a child with our memory does until exec. Only system calls; the parent's thread sleeps meanwhile.
[[noreturn]] void runChild(const ChildPlan& plan) {
  // Undoes ignored signals too, which exec would keep. The mask still blocks everything, so no handler of
  // ours can run in memory that we share. Zeros are the kernel's SIG_DFL; the C library's call may take a
  // lock.
  constexpr unsigned char defaults[64] = {};
  for (int signal = 1; signal < NSIG; ++signal) {
    syscall(SYS_rt_sigaction, signal, defaults, nullptr, static_cast<std::size_t>(NSIG / 8));
  }

  setpgid(0, 0);
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) fail(plan, errno);
  if (getppid() != plan.parent) _exit(127);  // the parent ended before it could be watched

  // First, for its own descriptor may stand where one of the child's goes.
  if (const int code = plan.confinement.apply(); code != 0) fail(plan, code);

  // Copies first: each may stand where another goes.
  const int count = static_cast<int>(plan.descriptors.size());
  for (int& descriptor : plan.descriptors) {
    if (descriptor >= 0 && (descriptor = fcntl(descriptor, F_DUPFD_CLOEXEC, count)) < 0) fail(plan, errno);
  }
  for (int target = 0; target < count; ++target) {
    const int descriptor = plan.descriptors[static_cast<std::size_t>(target)];
    if (descriptor >= 0 && dup2(descriptor, target) < 0) fail(plan, errno);
  }
  // Descriptors that a library opened, or that we were started with, are nobody's business either. A kernel
  // that cannot do this (before 5.11) still closes all that we open ourselves.
  syscall(SYS_close_range, static_cast<unsigned>(count), ~0U, CLOSE_RANGE_CLOEXEC);

  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  plan.confinement.execute(plan.path, plan.arguments, plan.environment);
  fail(plan, errno);
}

/// vfork shares our memory until exec, so that a start costs the same however much we hold. A function of its
/// own, never inlined: the child must not disturb a frame that the parent goes on with.
[[gnu::noinline]] pid_t startChild(const ChildPlan& plan) {
  const pid_t pid = vfork();  // NOLINT(clang-analyzer-unix.Vfork,clang-analyzer-security.insecureAPI.vfork)
  if (pid == 0) runChild(plan);
  return pid;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (auto& text : strings) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// A service that was started with SIGCHLD ignored would have its children reaped by the kernel and lose
/// their exit status.
void keepExitStatuses() {
  [[maybe_unused]] static const bool done = [] {
    struct sigaction current {};
    sigaction(SIGCHLD, nullptr, &current);
    if (current.sa_handler == SIG_IGN || (current.sa_flags & SA_NOCLDWAIT)) signal(SIGCHLD, SIG_DFL);
    return true;
  }();
}

}  // namespace

Process::Process(const Launch& launch) {
  keepExitStatuses();
  std::vector<std::string> arguments{launch.executable.path()};
  arguments.insert(arguments.end(), launch.arguments.begin(), launch.arguments.end());
  std::vector<std::string> environment = launch.environment;
  const auto argumentPointers = pointers(arguments);
  const auto environmentPointers = pointers(environment);

  const auto failed = [&](int code) { return FileError("启动", launch.executable.path(), code); };
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw failed(errno);
  const Descriptor failureReader(ends[0]);
  Descriptor failureWriter(ends[1]);
  std::vector<int> descriptors = {launch.standardInput, launch.standardOutput, launch.standardError};
  descriptors.insert(descriptors.end(), launch.descriptors.begin(), launch.descriptors.end());
  failureWriter =
      Descriptor(fcntl(failureWriter.get(), F_DUPFD_CLOEXEC, static_cast<int>(descriptors.size())));
  if (!failureWriter) throw failed(errno);

  ChildConfinement confinement;
  if (launch.confinement) confinement = ChildConfinement(*launch.confinement, launch.executable);
  const ChildPlan plan{.path = launch.executable.path().c_str(),
                       .arguments = argumentPointers.data(),
                       .environment = environmentPointers.data(),
                       .descriptors = descriptors,
                       .failureDescriptor = failureWriter.get(),
                       .confinement = confinement,
                       .parent = getpid()};
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  pid_ = startChild(plan);
  const int startError = errno;
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (pid_ < 0) throw failed(startError);

  failureWriter.reset();
  int code = 0;
  ssize_t count = 0;
  while ((count = read(failureReader.get(), &code, sizeof code)) < 0 && errno == EINTR) {
  }
  if (count == 0) {
    pidDescriptor_ = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    if (pidDescriptor_) return;
    code = errno;
  }
  reap();
  throw failed(code);
}

Process::~Process() {
  if (!status_) reap();
}

Process::Wait Process::waitUntil(Clock::time_point deadline, const StopToken& stop) {
  if (status_) return Wait::exited;
  for (;;) {
    const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec timeout{.tv_sec = seconds.count(),
                           .tv_nsec = std::chrono::nanoseconds(left - seconds).count()};
    pollfd watched[] = {{.fd = pidDescriptor_.get(), .events = POLLIN, .revents = 0},
                        {.fd = stop.descriptor(), .events = POLLIN, .revents = 0}};
    const int count = ppoll(watched, std::size(watched), &timeout, nullptr);
    if (count < 0 && errno != EINTR) throw FileError("等待", "poll", errno);
    if (count <= 0) {
      if (count == 0 && Clock::now() >= deadline) return Wait::timedOut;
      continue;
    }
    if (watched[0].revents != 0) {
      reap();
      return Wait::exited;
    }
    return Wait::stopped;
  }
}

void Process::terminate(std::chrono::duration<double> grace) {
  if (status_) return;
  if (kill(-pid_, SIGTERM) != 0) kill(pid_, SIGTERM);  // it may have left its group
  if (waitUntil(deadlineAfter(grace.count()), {}) != Wait::exited) reap();
}

/// Kills what is left of the group, then waits for the child. The child is not reaped yet, so the group's
/// number cannot belong to anybody else; if the child has ended already, its status stands.
void Process::reap() {
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);  // it may have left its group
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0) {
    if (errno != EINTR) {  // somebody else reaped it: its status is lost, so it cannot count as a success
      status_ = SIGKILL;
      return;
    }
  }
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

std::vector<std::string> currentEnvironment() {
  std::vector<std::string> result;
  for (char** entry = environ; entry && *entry; ++entry) result.emplace_back(*entry);
  return result;
}

Clock::time_point deadlineAfter(double seconds) {
  constexpr double tenYears = 315'360'000;
  const double bounded = seconds > 0 ? std::min(seconds, tenYears) : 0;  // also for a value that is no number
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

}  // namespace tidewell
