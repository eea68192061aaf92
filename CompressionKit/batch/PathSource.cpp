// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/PathSource.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <memory>
#include <utility>

#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

class NULSeparatedPaths {
 public:
  NULSeparatedPaths(Descriptor descriptor, URL file, StopToken stop)
      : descriptor_(std::move(descriptor)), file_(std::move(file)), stop_(std::move(stop)) {}

  std::optional<std::string> next() {
    std::string path;
    for (;;) {
      if (position_ == end_ && !refill()) break;
      const char c = buffer_[position_++];
      if (c != '\0') {
        path += c;
      } else if (!path.empty()) {
        return path;
      }
    }
    return path.empty() || stop_.stopRequested() ? std::nullopt : std::optional(std::move(path));
  }

 private:
  /// False at the end.
  bool refill() {
    for (;;) {
      pollfd watched[] = {{.fd = descriptor_.get(), .events = POLLIN, .revents = 0},
                          {.fd = stop_.descriptor(), .events = 0, .revents = 0}};
      const int ready = poll(watched, std::size(watched), -1);
      if (stop_.stopRequested()) return false;
      const ssize_t count = ready < 0 ? -1 : read(descriptor_.get(), buffer_.data(), buffer_.size());
      if (count >= 0) {
        position_ = 0;
        end_ = static_cast<std::size_t>(count);
        return count > 0;
      }
      if (errno != EINTR && errno != EAGAIN) throw FileError("读取", file_.path(), errno);
    }
  }

  Descriptor descriptor_;
  URL file_;
  StopToken stop_;
  std::array<char, 65536> buffer_{};
  std::size_t position_ = 0, end_ = 0;
};

}  // namespace

PathSource namedPaths(std::vector<std::string> paths) {
  return [paths = std::move(paths), next = std::size_t{0}]() mutable -> std::optional<std::string> {
    if (next == paths.size()) return std::nullopt;
    return std::move(paths[next++]);
  };
}

PathSource nulSeparatedPaths(Descriptor descriptor, URL file, StopToken stop) {
  auto paths = std::make_shared<NULSeparatedPaths>(std::move(descriptor), std::move(file), std::move(stop));
  return [paths = std::move(paths)] { return paths->next(); };
}

}  // namespace tidewell
