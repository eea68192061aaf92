// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/tools/ToolRunner.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageInput.h"
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

/// What a tool writes to. Files, not pipes: nobody has to read while the tool runs, and its output is never
/// held in memory. Without names: whatever ends us leaves nothing behind.
struct Captures {
  ImageInput output, error;
};

/// An empty file; none, with errno, where it cannot be made.
Descriptor openCapture(const URL& name) {
  const std::string directory = name.deletingLastPathComponent().path();
  Descriptor file(open(directory.c_str(), O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
  if (file) return file;
  // Some file systems have no such files: there it has a name for a moment. A directory that refuses both
  // says here why.
  file = Descriptor(open(name.path().c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
  if (file) unlink(name.path().c_str());
  return file;
}

Captures createCaptures() {
  const URL name = locations::temporaryDirectory().appending("tidewell-tool-" + UUID::random().string());
  Descriptor output = openCapture(name);
  // The temporary directory may hold nothing of ours: for users that reads as it did when this was a folder.
  if (!output && errno != EMFILE && errno != ENFILE) throw FileError("创建文件夹", name.path(), errno);
  Descriptor error = openCapture(name);
  if (!output || !error) throw CompressionError::fileOperation("无法创建压缩组件日志");
  return {.output = ImageInput(std::move(output), name.path()),
          .error = ImageInput(std::move(error), name.path())};
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

  const Captures captures = createCaptures();
  Process process({.executable = directory_.appending(tool),
                   .arguments = arguments,
                   .environment = toolEnvironment(),
                   .standardOutput = captures.output.descriptor(),
                   .standardError = captures.error.descriptor(),
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
  const std::string errorText = repairedUTF8(captures.error.head(standardErrorLimit));
  if (const int status = process.terminationStatus(); status != 0) {
    throw CompressionError::toolExited(tool, status, characterPrefix(errorText, failureDetailCharacters));
  }
  return repairedUTF8(captures.output.head(standardOutputLimit));
}

}  // namespace tidewell
