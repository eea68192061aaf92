// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/RowFile.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {

RowFile::RowFile(const URL& directory, std::int64_t width, std::int64_t height)
    : directory_(directory), width_(width) {
  // Two pictures of a comparison ask at once: the second sees what the first has left.
  static std::mutex asking;
  const std::lock_guard lock(asking);
  std::error_code error;
  const auto space = std::filesystem::space(directory.path(), error);
  if (error) throw FileError("创建", directory.path(), error.value());
  const std::int64_t bytes = 4 * width * height;
  // Others need room meanwhile: a batch, above all.
  if (static_cast<double>(space.available) / 2 < static_cast<double>(bytes))
    throw FileError("创建", directory.path(), ENOSPC);
  Descriptor file(open(directory.path().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!file) throw FileError("创建", directory.path(), errno);
  // Some file systems cannot set room aside: there the rows find out when they are written.
  if (fallocate(file.get(), 0, 0, bytes) != 0 && errno != EOPNOTSUPP && errno != EINTR)
    throw FileError("创建", directory.path(), errno);
  file_.emplace(std::move(file), directory.path());
}

void RowFile::append(std::span<const std::uint8_t> rows) {
  files::writeFully(file_->descriptor(), rows.data(), rows.size(), directory_);
}

Bitmap RowFile::part(const Rectangle& part) const {
  Bitmap result{.width = part.width,
                .height = part.height,
                .pixels = std::vector<std::uint8_t>(static_cast<std::size_t>(part.width * part.height) * 4),
                .color = {}};
  for (std::int64_t y = 0; y < part.height; ++y) {
    const auto row = result.row(y);
    const std::int64_t offset = ((part.y + y) * width_ + part.x) * 4;
    const ssize_t count = file_->readAt(offset, row.data(), row.size());
    if (count != static_cast<ssize_t>(row.size()))
      throw FileError("读取", directory_.path(), count < 0 ? errno : EIO);
  }
  return result;
}

}  // namespace tidewell
