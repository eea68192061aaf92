// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/HEICDecoding.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/HEICAnswer.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/Process.h"
#include "CompressionKit/tools/ToolRunner.h"

namespace tidewell {
namespace {

/// Decoded planes, what the decoder works with, and the image made of them: each is bounded by the limits of
/// the codec. This is for what finds a way around those.
constexpr std::int64_t maximumMemory = 8 * ImageLimits::maximumResidentBytes;
/// An image of 8 bits may become a PNG of 16, which is compressed as a rule, but not always.
constexpr std::int64_t maximumPNGBytes = 3 * ImageLimits::maximumResidentBytes;

const char* argument(HEICDecoding::Purpose purpose) {
  switch (purpose) {
    case HEICDecoding::Purpose::inspect:
      return "inspect";
    case HEICDecoding::Purpose::convert:
      return "convert";
    case HEICDecoding::Purpose::show:
      break;
  }
  return "show";
}

Descriptor nullDevice() {
  Descriptor file(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!file) throw FileError("读取", "/dev/null", errno);
  return file;
}

/// A file in memory that has its size and keeps it: nobody has to read while the program writes its answer.
Descriptor answerFile() {
  const URL name = URL::file("/heic-answer");
  Descriptor file(memfd_create("heic-answer", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file) throw FileError("创建", name.path(), errno);
  const std::string zeros(HEICAnswer::maximumBytes, '\0');
  files::writeFully(file.get(), zeros.data(), zeros.size(), name);
  if (lseek(file.get(), 0, SEEK_SET) != 0 ||
      fcntl(file.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0) {
    throw FileError("创建", name.path(), errno);
  }
  return file;
}

/// Beside the HEIC file, for there the PNG is to stay; a directory that we may not write to, or a file system
/// without such files, sends it to the temporary files, and in the end to memory.
Descriptor unnamedFile(const URL& beside) {
  for (const URL& directory : {beside.deletingLastPathComponent(), locations::temporaryDirectory()}) {
    Descriptor file(open(directory.path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file) return file;
  }
  Descriptor file(memfd_create("heic-png", MFD_CLOEXEC));
  if (!file) throw FileError("创建", "/heic-png", errno);
  return file;
}

void copy(const ImageInput& from, const URL& to) {
  const Descriptor file(open(to.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) throw FileError("写入", to.path(), errno);
  std::vector<char> piece(std::size_t{1} << 20);
  const std::int64_t size = from.size();
  for (std::int64_t done = 0; done < size;) {
    const ssize_t count = from.readAt(done, piece.data(), piece.size());
    if (count <= 0) throw FileError("读取", to.path(), errno);
    files::writeFully(file.get(), piece.data(), static_cast<std::size_t>(count), to);
    done += count;
  }
}

}  // namespace

HEICDecoding::HEICDecoding(const URL& url, Purpose purpose, const StopToken& stop,
                           const HEICProgram& program) {
  const ImageInput heic = decoding([&] {
    ImageInput input(url);
    const auto source = ImageSource::open(input, stop);
    if (source->count() < 1) throw CompressionError::invalidImage();
    if (!ImageKind(ImageKind::heic).accepts(source->container())) throw CompressionError::formatMismatch();
    if (purpose == Purpose::convert) hash_ = input.hash();
    return input;
  });
  if (!files::isExecutableFile(program.url)) {
    throw CompressionError::toolMissing(program.url.lastPathComponent());
  }
  if (purpose != Purpose::inspect) png_.emplace(unnamedFile(url));
  run(program, purpose, heic, stop);
}

void HEICDecoding::run(const HEICProgram& program, Purpose purpose, const ImageInput& heic,
                       const StopToken& stop) {
  const Descriptor null = nullDevice();
  const ImageInput answer(answerFile());
  Process process(
      {.executable = program.url,
       .arguments = {argument(purpose)},
       .environment = toolEnvironment(),
       .standardInput = heic.descriptor(),
       .standardOutput = null.get(),
       .standardError = null.get(),
       .descriptors = {answer.descriptor(), png_ ? png_->descriptor() : null.get()},
       .confinement = Confinement{.maximumMemory = maximumMemory, .maximumFileSize = maximumPNGBytes}});
  // It has nothing to clean up, so it is killed where it does not end.
  switch (process.waitUntil(deadlineAfter(program.timeout), stop)) {
    case Process::Wait::exited:
      break;
    case Process::Wait::timedOut:
      throw CompressionError::invalidImage();
    case Process::Wait::stopped:
      throw Interrupted();
  }
  const auto said = HEICAnswer::parse(answer.head(HEICAnswer::maximumBytes));
  if (process.terminationStatus() != 0 || !said) throw CompressionError::invalidImage();
  facts_ = said->facts;
  if (!said->hasPNG) png_.reset();
}

const ImageInput& HEICDecoding::png() const {
  if (!png_) throw CompressionError::invalidImage();
  return *png_;
}

void HEICDecoding::savePNG(const URL& url) {
  decoding([&] {
    const std::string unnamed = "/proc/self/fd/" + std::to_string(png().descriptor());
    if (linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, url.path().c_str(), AT_SYMLINK_FOLLOW) != 0) {
      copy(png(), url);
    }
  });
  png_.reset();
}

}  // namespace tidewell
