// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/Faults.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace tidewell::test {
namespace {

thread_local Faults* armed = nullptr;

std::string pathOf(int folder, const char* path) {
  if (path && path[0] == '/') return path;
  char base[4096] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(folder);
  if (folder < 0 || readlink(link.c_str(), base, sizeof base - 1) < 0) return path ? path : "";
  return path ? std::string(base) + "/" + path : base;
}

unsigned traitFor(int code) {
  if (code == EINTR) return FileCall::interruptible;
  return code == ENOSPC ? FileCall::allocates : FileCall::canFail;
}

/// Without a trait: at any moment.
bool concerns(unsigned traits, const FileCall& call) {
  return traits == 0 ? (call.traits & FileCall::isNoMoment) == 0 : (call.traits & traits) != 0;
}

}  // namespace

std::string FileCall::paths() const {
  return pathOf(folder, path) + (second ? std::string(" -> ") + second : "");
}

Faults::Faults() {
  armed = this;
}

Faults::~Faults() {
  armed = nullptr;
}

Faults* Faults::current() {
  return armed;
}

Faults& Faults::add(Step step) {
  step.stage = stage_;
  steps_.push_back(std::move(step));
  return *this;
}

Faults& Faults::fail(int point, int code, bool lasting, unsigned traits) {
  return add({.point = point,
              .traits = traits ? traits : traitFor(code),
              .act = [code] { return code; },
              .lasting = lasting});
}

Faults& Faults::end(int point) {
  return add({.point = point, .traits = FileCall::changes, .act = []() -> int { leave(ended); }});
}

Faults& Faults::losePower(int point, VolatileDisk& disk, VolatileDisk::Lost lost) {
  disk_ = &disk;
  const auto act = [&disk, lost]() -> int {
    disk.losePower(lost);
    leave(ended);
  };
  return add({.point = point, .traits = FileCall::changes | FileCall::flushes, .act = act});
}

Faults& Faults::at(int point, std::function<void()> act, unsigned traits) {
  const auto acted = [act = std::move(act)] {
    act();
    return 0;
  };
  return add({.point = point, .traits = traits, .act = acted});
}

Faults& Faults::then() {
  ++stage_;
  return *this;
}

Faults& Faults::watch(std::string path) {
  watched_ = std::move(path);
  return *this;
}

bool Faults::happened() const {
  return std::ranges::all_of(steps_, &Step::happened);
}

int Faults::before(const FileCall& call) {
  armed = nullptr;  // while a plan does something itself, its calls go straight through
  int code = 0;
  for (Step& step : steps_) {
    const bool waits = std::ranges::any_of(
        steps_, [&](const Step& other) { return other.stage < step.stage && !other.happened; });
    if (waits || !concerns(step.traits, call) || (step.happened && !step.lasting)) continue;
    if (!step.happened && ++step.seen < step.point) continue;
    if (!step.happened) where_ = std::string(call.name) + " " + call.paths();
    step.happened = true;
    if (const int result = step.act()) code = result;
  }
  if (!watched_.empty() && firstAfterwards_.empty() && happened() && call.path &&
      call.paths().find(watched_) != std::string::npos) {
    firstAfterwards_ = call.name;
    if (call.second) firstAfterwards_ += call.second == watched_ ? " onto" : " from";
  }
  armed = this;
  return code;
}

void Faults::after(const FileCall& call) {
  if (!disk_) return;
  armed = nullptr;
  if ((call.traits & FileCall::flushes) != 0) disk_->flushed(call.folder);
  if ((call.traits & FileCall::changes) != 0 && call.path) {
    std::vector<std::string> names = {pathOf(call.folder, call.path)};
    if (call.second) names.push_back(call.second);
    disk_->changed(names);
  }
  armed = this;
}

void Faults::leave(int status) {
  _exit(status);
}

int Faults::runInChild(const std::function<void()>& work) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    try {
      work();
    } catch (...) {
      leave(1);
    }
    leave(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) throw std::runtime_error("fork");
  if (!WIFEXITED(status)) throw std::runtime_error("the child crashed");
  return WEXITSTATUS(status);
}

}  // namespace tidewell::test
