// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <limits>
#include <thread>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "support/Failure.h"
#include "support/Script.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

using test::Signpost;
using test::TemporaryFolder;
using test::writeScript;
using namespace std::chrono_literals;

const auto never = std::chrono::steady_clock::time_point::max();

class ProcessTest : public testing::Test {
 protected:
  Process::Launch launch(const URL& executable, std::vector<std::string> arguments = {}) const {
    return {.executable = executable,
            .arguments = std::move(arguments),
            .environment = {"PATH=/usr/bin:/bin", "GREETING=潮 汐"},
            .standardOutput = output.get(),
            .standardError = error.get()};
  }
  Process::Launch script(std::string_view body, std::vector<std::string> arguments = {}) const {
    return launch(writeScript(folder, "script", body), std::move(arguments));
  }
  int statusOf(const Process::Launch& plan) const {
    Process process(plan);
    EXPECT_EQ(process.waitUntil(never, {}), Process::Wait::exited);
    return process.terminationStatus();
  }
  std::string text(const char* name) const { return files::read(folder / name); }

  TemporaryFolder folder;
  Descriptor output{open((folder / "out").path().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)};
  Descriptor error{open((folder / "err").path().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)};
};

TEST_F(ProcessTest, PassesArgumentsEnvironmentAndOutputs) {
  EXPECT_EQ(statusOf(script("printf '<%s>' \"$@\" \"$GREETING\"; env | wc -l; echo oops >&2; exit 3",
                            {"a b", "", "*", "$HOME", "\xFF"})),
            3);
  EXPECT_TRUE(text("out").starts_with("<a b><><*><$HOME><\xFF><潮 汐>")) << text("out");
  EXPECT_EQ(text("err"), "oops\n");
}

TEST_F(ProcessTest, OutputsMayCross) {
  // Our own 1 and 2 are put in the child's place of the other, which a naive pair of copies would lose.
  const Descriptor oldOutput(dup(1));
  const Descriptor oldError(dup(2));
  dup2(output.get(), 1);
  dup2(error.get(), 2);
  auto plan = script("echo to-output; echo to-error >&2");
  plan.standardOutput = 2;
  plan.standardError = 1;
  const int status = statusOf(plan);
  dup2(oldOutput.get(), 1);
  dup2(oldError.get(), 2);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(text("out"), "to-error\n");
  EXPECT_EQ(text("err"), "to-output\n");
}

TEST_F(ProcessTest, GivesMoreDescriptors) {
  // They, what follows them here and the failure pipe stand where others go.
  auto plan = script("cat >&4; echo to-error >&3; test ! -e /proc/self/fd/5");
  const Descriptor question = files::openForReading(folder.write("question", "what?"));
  plan.standardInput = question.get();
  plan.descriptors = {error.get(), output.get()};
  EXPECT_EQ(statusOf(plan), 0);
  EXPECT_EQ(text("out"), "what?");
  EXPECT_EQ(text("err"), "to-error\n");
}

TEST_F(ProcessTest, BoundsWhatTheChildTakes) {
  auto plan = script("ulimit -v; head -c 100000 /dev/zero > " + (folder / "large").path());
  plan.confinement =
      Confinement{.maximumMemory = 1 << 30, .maximumFileSize = 5000, .means = {.limits = true}};
  EXPECT_NE(statusOf(plan), 0);
  EXPECT_EQ(text("out"), "1048576\n");
  EXPECT_EQ(fileSize(folder / "large"), 5000);
  plan.confinement->means.limits = false;
  EXPECT_EQ(statusOf(plan), 0);
}

TEST_F(ProcessTest, StartsWithACleanSlate) {
  sigset_t blocked;
  sigset_t previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous);
  const auto oldHandler = signal(SIGPIPE, SIG_IGN);
  const Descriptor stray(dup2(output.get(), 77));  // not closed on exec by itself
  EXPECT_EQ(statusOf(launch(URL::file("/bin/cat"), {"/proc/self/status"})), 0);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  signal(SIGPIPE, oldHandler);
  for (const char* line : {"SigBlk:\t0000000000000000\n", "SigIgn:\t0000000000000000\n"}) {
    EXPECT_NE(text("out").find(line), std::string::npos) << text("out");
  }
  EXPECT_EQ(statusOf(script("test ! -e /proc/self/fd/77")), 0);
  EXPECT_EQ(fcntl(77, F_GETFD), 0) << "our own descriptor must stay as it was";

  Process process(script("exec sleep 1000"));
  EXPECT_EQ(getpgid(process.identifier()), process.identifier());
}

TEST_F(ProcessTest, SaysWhyAProgramDidNotStart) {
  const struct {
    URL executable;
    int code;
  } cases[] = {{folder / "missing", ENOENT},
               {folder.write("plain", "echo"), EACCES},
               {folder.url(), EACCES},
               {writeScript(folder, "lost", ""), 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(test::errnoOf([&] { EXPECT_EQ(statusOf(launch(c.executable)), 0); }), c.code)
        << c.executable.path();
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
}

TEST_F(ProcessTest, WaitsForTheEndTheDeadlineOrAStop) {
  StopSource source;
  Process process(script("exec sleep 1000"));
  EXPECT_EQ(process.waitUntil(deadlineAfter(0), source.token()), Process::Wait::timedOut);
  EXPECT_EQ(process.waitUntil(deadlineAfter(0.01), source.token()), Process::Wait::timedOut);
  std::thread stopper([&] { source.requestStop(); });
  EXPECT_EQ(process.waitUntil(never, source.token()), Process::Wait::stopped);
  stopper.join();
  kill(process.identifier(), SIGINT);
  EXPECT_EQ(process.waitUntil(never, {}), Process::Wait::exited);
  EXPECT_EQ(process.terminationStatus(), SIGINT);
}

TEST_F(ProcessTest, TerminatesPolitelyFirst) {
  const Signpost ready(folder / "ready");
  Process polite(script("trap 'exit 7' TERM; echo > " + ready.path() + "; while :; do sleep 0.05; done"));
  ready.wait();
  polite.terminate(1000s);
  EXPECT_EQ(polite.terminationStatus(), 7);

  Process stubborn(script("trap '' TERM; echo > " + ready.path() + "; while :; do sleep 0.05; done"));
  ready.wait();
  stubborn.terminate(10ms);
  EXPECT_EQ(stubborn.terminationStatus(), SIGKILL);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

/// Waits for a process that became ours because its parent ended.
int signalThatEnded(const std::string& pid) {
  int status = 0;
  EXPECT_EQ(waitpid(std::stoi(pid), &status, 0), std::stoi(pid));
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST_F(ProcessTest, NothingOutlivesTheChildOrTheService) {
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  EXPECT_EQ(statusOf(script("sleep 1000 & echo $!")), 0);
  EXPECT_EQ(signalThatEnded(text("out")), SIGKILL);

  const Signpost ready(folder / "ready");
  const pid_t service = fork();
  if (service == 0) {
    Process process(script("echo $$ > " + ready.path() + "; exec sleep 1000"));
    process.waitUntil(never, {});
    _exit(1);
  }
  const std::string tool = ready.wait();
  kill(service, SIGKILL);
  EXPECT_EQ(signalThatEnded(std::to_string(service)), SIGKILL);
  EXPECT_EQ(signalThatEnded(tool), SIGKILL);
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST(Deadlines, TakeAnyNumber) {
  const auto now = std::chrono::steady_clock::now();
  for (const double seconds : {0.0, -5.0, std::nan(""), -std::numeric_limits<double>::infinity()}) {
    const auto deadline = deadlineAfter(seconds);
    EXPECT_LE(deadline, std::chrono::steady_clock::now()) << seconds;
  }
  for (const double seconds : {3601.0, 1e300, std::numeric_limits<double>::infinity()}) {
    EXPECT_GT(deadlineAfter(seconds), now + 1h) << seconds;
  }
}

}  // namespace
}  // namespace tidewell
