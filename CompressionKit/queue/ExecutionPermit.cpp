// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/queue/ExecutionPermit.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>

#include <cerrno>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

constexpr int slotPollingMilliseconds = 50;

void lockFile(int descriptor, const StopToken& stop) {
  const StopToken::Interruptible section(stop);
  for (;;) {
    stop.throwIfStopped();
    if (flock(descriptor, LOCK_EX) == 0) return;
    if (errno != EINTR) throw CompressionError::fileOperation("无法锁定压缩中的文件");
  }
}

/// Takes the first free slot out of the list; nothing when all are held by others.
Descriptor takeSlot(std::vector<Descriptor>& slots) {
  for (Descriptor& slot : slots) {
    if (flock(slot.get(), LOCK_EX | LOCK_NB) == 0) return std::move(slot);
    if (errno != EWOULDBLOCK && errno != EINTR) {
      throw CompressionError::fileOperation("无法获取压缩任务名额");
    }
  }
  return {};
}

/// Closing frees a lock only once no copy of the descriptor is left, and a child that is just being started
/// has one for a moment.
void unlock(Descriptor& descriptor) {
  if (!descriptor) return;
  flock(descriptor.get(), LOCK_UN);
  descriptor.reset();
}

}  // namespace

ExecutionPermit::ExecutionPermit(const URL& directory, const std::string& key, int capacity,
                                 const StopToken& stop) {
  files::createDirectories(directory);
  fileDescriptor_ = openLock(directory.appending(fileLockName(key)));
  lockFile(fileDescriptor_.get(), stop);

  std::vector<Descriptor> slots;
  slots.reserve(static_cast<std::size_t>(capacity));
  for (int index = 0; index < capacity; ++index) {
    slots.push_back(openLock(directory.appending("slot-" + std::to_string(index) + ".lock")));
  }
  for (;;) {
    stop.throwIfStopped();
    capacityDescriptor_ = takeSlot(slots);
    if (capacityDescriptor_) return;
    // Locks of several files cannot be awaited together, so the wait is a poll; a stop request cuts it short.
    pollfd request{.fd = stop.descriptor(), .events = POLLIN, .revents = 0};
    poll(&request, 1, slotPollingMilliseconds);
  }
}

std::string ExecutionPermit::fileLockName(const std::string& key) {
  return "file-" + hash(std::string_view(key)) + ".lock";
}

Descriptor ExecutionPermit::openLock(const URL& url) {
  Descriptor descriptor(open(url.path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!descriptor) throw CompressionError::fileOperation("无法创建压缩任务锁");
  return descriptor;
}

void ExecutionPermit::release() {
  unlock(capacityDescriptor_);
  unlock(fileDescriptor_);
}

}  // namespace tidewell
