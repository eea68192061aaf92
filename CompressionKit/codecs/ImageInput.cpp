// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/ImageInput.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

struct Cookie {
  ImageInput input;
  off64_t position = 0;
};

ssize_t readCookie(void* cookie, char* to, std::size_t size) {
  auto& self = *static_cast<Cookie*>(cookie);
  const ssize_t count = self.input.readAt(self.position, to, size);
  if (count > 0) self.position += count;
  return count;
}

/// Readers ask for positions from the start, or from where they are.
int seekCookie(void* cookie, off64_t* offset, int whence) {
  auto& self = *static_cast<Cookie*>(cookie);
  const off64_t position = whence == SEEK_CUR ? self.position + *offset : *offset;
  if (whence == SEEK_END || position < 0) return -1;
  *offset = self.position = position;
  return 0;
}

}  // namespace

ImageInput::ImageInput(const URL& url) : ImageInput(files::openForReading(url), url.path()) {}

ImageInput::ImageInput(Descriptor descriptor, std::string name)
    : descriptor_(std::make_shared<const Descriptor>(std::move(descriptor))), name_(std::move(name)) {}

std::int64_t ImageInput::size() const {
  if (!descriptor_) return static_cast<std::int64_t>(bytes_.size());
  struct stat status {};
  if (::fstat(descriptor_->get(), &status) != 0) throw FileError("读取", name_, errno);
  return status.st_size;
}

ssize_t ImageInput::readAt(std::int64_t offset, void* to, std::size_t size) const noexcept {
  if (!descriptor_) {
    if (offset < 0) return errno = EINVAL, -1;
    const auto start = std::min(static_cast<std::size_t>(offset), bytes_.size());
    const std::size_t count = std::min(size, bytes_.size() - start);
    if (count > 0) std::memcpy(to, bytes_.data() + start, count);
    return static_cast<ssize_t>(count);
  }
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = ::pread(descriptor_->get(), static_cast<char*>(to) + done, size - done,
                                  offset + static_cast<std::int64_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

std::string ImageInput::head(std::size_t maximumBytes) const {
  std::string bytes(maximumBytes, '\0');
  const ssize_t count = readAt(0, bytes.data(), bytes.size());
  if (count < 0) throw FileError("读取", name_, errno);
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

std::string ImageInput::hash() const {
  std::int64_t position = 0;
  const auto read = [&](char* to, std::size_t size) {
    const ssize_t count = readAt(position, to, size);
    if (count < 0) throw FileError("读取", name_, errno);
    position += count;
    return static_cast<std::size_t>(count);
  };
  return tidewell::hash(read, size());
}

ImageInput::Stream ImageInput::stream() const {
  auto cookie = std::make_unique<Cookie>(Cookie{*this});
  const auto close = [](void* it) {
    delete static_cast<Cookie*>(it);
    return 0;
  };
  Stream stream(fopencookie(cookie.get(), "r", {readCookie, nullptr, seekCookie, close}));
  if (!stream) throw std::bad_alloc();
  static_cast<void>(cookie.release());  // the stream deletes it
  return stream;
}

}  // namespace tidewell
