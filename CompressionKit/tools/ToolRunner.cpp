// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/tools/ToolRunner.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Process.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

constexpr std::size_t standardOutputLimit = 1'048'576;
constexpr std::size_t standardErrorLimit = 8'192;
constexpr std::size_t failureDetailCharacters = 180;
constexpr std::chrono::duration<double> graceAfterTimeout{1.0};
/// Whoever asked for a stop is waiting for it, and the output of a stopped tool is of no use.
constexpr std::chrono::duration<double> graceAfterStop{0.2};

/// An empty file for the tool to write to. Files, not pipes: nobody has to read while the tool runs, and
/// its output is never held in memory.
Descriptor createCapture(const URL& url) {
  const int descriptor = open(url.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) throw CompressionError::fileOperation("无法创建压缩组件日志");
  return Descriptor(descriptor);
}

std::string readOutput(const URL& url, std::size_t maximumBytes) {
  return repairedUTF8(files::read(url, maximumBytes));
}

}  // namespace

ToolRunner::ToolRunner(URL directory, StopToken stop)
    : directory_(std::move(directory)), stop_(std::move(stop)) {}

bool ToolRunner::has(std::string_view name) const {
  return files::isExecutableFile(directory_.appending(name));
}

std::string ToolRunner::run(std::string_view tool, const std::vector<std::string>& arguments, double timeout,
                            const Confinement& files, const std::function<void()>& started) const {
  stop_.throwIfStopped();
  if (!has(tool)) throw CompressionError::toolMissing(tool);

  // Declared in this order, the captures are closed before their directory goes.
  const URL scratch = locations::temporaryDirectory().appending("tidewell-tool-" + UUID::random().string());
  files::createDirectory(scratch, 0700);
  const files::TemporaryTree removal(scratch);
  const URL outputURL = scratch.appending("stdout");
  const URL errorURL = scratch.appending("stderr");
  const Descriptor output = createCapture(outputURL);
  const Descriptor error = createCapture(errorURL);

  Process process({.executable = directory_.appending(tool),
                   .arguments = arguments,
                   .environment = toolEnvironment(),
                   .standardOutput = output.get(),
                   .standardError = error.get(),
                   .confinement = files});
  if (started) started();
  switch (process.waitUntil(deadlineAfter(timeout), stop_)) {
    case Process::Wait::exited:
      break;
    case Process::Wait::timedOut:
      process.terminate(graceAfterTimeout);
      throw CompressionError::toolTimedOut(tool);
    case Process::Wait::stopped:
      process.terminate(graceAfterStop);
      throw Interrupted();
  }

  // Read before the status is looked at: a capture that cannot be read fails the run either way.
  const std::string errorText = readOutput(errorURL, standardErrorLimit);
  if (const int status = process.terminationStatus(); status != 0) {
    throw CompressionError::toolExited(tool, status, characterPrefix(errorText, failureDetailCharacters));
  }
  return readOutput(outputURL, standardOutputLimit);
}

}  // namespace tidewell
