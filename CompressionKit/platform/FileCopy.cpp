// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell::files {
namespace {

constexpr std::string_view accessControlList = "system.posix_acl_access";

/// What to do with an attribute that the destination's file system refuses.
enum class Missing { isError, isAccepted };

std::vector<std::string> attributeNames(int file) {
  std::string list;
  for (;;) {
    const ssize_t size = flistxattr(file, nullptr, 0);
    if (size <= 0) return {};  // none, or a file system without them
    list.resize(static_cast<std::size_t>(size));
    const ssize_t count = flistxattr(file, list.data(), list.size());
    if (count < 0 && errno == ERANGE) continue;  // one was added meanwhile
    if (count < 0) return {};
    list.resize(static_cast<std::size_t>(count));
    break;
  }
  std::vector<std::string> names;
  for (std::size_t start = 0; start < list.size();) {
    names.emplace_back(list.c_str() + start);
    start += names.back().size() + 1;
  }
  return names;
}

std::optional<std::string> attribute(int file, const std::string& name) {
  for (;;) {
    const ssize_t size = fgetxattr(file, name.c_str(), nullptr, 0);
    if (size < 0) return std::nullopt;
    std::string value(static_cast<std::size_t>(size), '\0');
    const ssize_t count = fgetxattr(file, name.c_str(), value.data(), value.size());
    if (count < 0 && errno == ERANGE) continue;
    if (count < 0) return std::nullopt;
    value.resize(static_cast<std::size_t>(count));
    return value;
  }
}

/// The user's own tags and access rights; the rest (security labels, trusted attributes) belongs to the
/// system, which sets it where we may not.
bool belongsToUser(const std::string& name) {
  return name.starts_with("user.") || name == accessControlList;
}

/// What the access control list gives to the file's group itself, as bits of a mode; the bits of the mode are
/// the mask for all whom it names. The form of the attribute is that of <linux/posix_acl_xattr.h>.
mode_t groupRights(const std::string& list) {
  constexpr std::size_t head = 4, entry = 8;
  constexpr char ofGroup = 0x04;
  for (std::size_t at = head; at + entry <= list.size(); at += entry) {
    if (list[at] == ofGroup && list[at + 1] == 0) return static_cast<mode_t>(list[at + 2] & S_IRWXO) << 3;
  }
  return 0;
}

/// Returns the bits of a mode that must not be set.
mode_t copyExtendedAttributes(int from, int to, const URL& url, Missing missing) {
  const auto names = attributeNames(from);
  const auto has = [&](const std::string& name) { return std::ranges::find(names, name) != names.end(); };
  if (missing == Missing::isError) {
    for (const auto& name : attributeNames(to)) {
      if (name.starts_with("user.") && !has(name)) fremovexattr(to, name.c_str());
    }
  }
  mode_t forbidden = 0;
  if (!has(std::string(accessControlList))) {
    // A default list of the directory may have given the new file one that the original does not have.
    fremovexattr(to, std::string(accessControlList).c_str());
  }
  for (const auto& name : names) {
    const auto value = attribute(from, name);
    if (!value || fsetxattr(to, name.c_str(), value->data(), value->size(), 0) == 0) continue;
    const int code = errno;
    const bool refused = code == ENOTSUP || code == EPERM || code == EACCES;
    if (belongsToUser(name) && (!refused || missing == Missing::isError)) {
      throw FileError("复制属性到", url.path(), code);
    }
    if (name == accessControlList) forbidden = S_IRWXG & ~groupRights(*value);
  }
  return forbidden;
}

/// Gives `to` the owner and group where we may, and returns the mode that it should get.
mode_t copyOwner(const struct stat& info, int to, const URL& url, Missing missing) {
  mode_t mode = info.st_mode & 07777;
  struct stat present {};
  if (fstat(to, &present) != 0) throw FileError("读取", url.path(), errno);
  if (present.st_uid == info.st_uid && present.st_gid == info.st_gid) return mode;
  if (fchown(to, info.st_uid, info.st_gid) == 0) return mode;
  const bool groupKept =
      present.st_gid == info.st_gid || fchown(to, static_cast<uid_t>(-1), info.st_gid) == 0;
  // Its owner would lose it.
  if (present.st_uid != info.st_uid && missing == Missing::isError) {
    throw FileError("复制属性到", url.path(), EPERM);
  }
  // Rights of another identity must not turn into rights of ours.
  if (present.st_uid != info.st_uid) mode &= static_cast<mode_t>(~S_ISUID);
  if (!groupKept) {  // another group may do what everybody may
    const mode_t ofAll = (mode & S_IRWXO) << 3;
    mode &= static_cast<mode_t>(~(S_ISGID | S_IRWXG)) | ofAll;
  }
  return mode;
}

/// The mode comes last: a change of owner clears bits of it, an access control list sets its group bits.
void copyOwnerAttributesAndMode(int from, int to, const struct stat& info, const URL& url, Missing missing) {
  mode_t mode = copyOwner(info, to, url, missing);
  mode &= ~copyExtendedAttributes(from, to, url, missing);
  if (fchmod(to, mode) != 0) throw FileError("设置权限", url.path(), errno);
}

/// Whether `visit` has seen the data.
bool copyData(int from, int to, const URL& source, const URL& destination, const DataVisitor& visit) {
  if (ioctl(to, FICLONE, from) == 0) return false;
  while (!visit) {
    const ssize_t count = copy_file_range(from, nullptr, to, nullptr, std::size_t{1} << 30, 0);
    if (count > 0) continue;
    if (count == 0 || errno != EINTR) break;
  }
  // Either all is copied, and the next read meets the end, or the kernel cannot do it between these two
  // file systems. Both descriptors stand where it stopped, so plain reads finish the work, and report the
  // errors.
  std::vector<char> buffer(std::size_t{1} << 18);
  while (const std::size_t count = readFully(from, buffer.data(), buffer.size(), source)) {
    if (visit) visit({buffer.data(), count});
    writeFully(to, buffer.data(), count, destination);
  }
  return true;
}

}  // namespace

void copyItem(const URL& from, const URL& to) {
  copyItem(from, to, {});
}

bool copyItem(const URL& from, const URL& to, const DataVisitor& visit) {
  const Descriptor source = openForReading(from);
  struct stat info {};
  if (fstat(source.get(), &info) != 0) throw FileError("读取", from.path(), errno);
  if (!S_ISREG(info.st_mode)) throw FileError("复制", from.path(), S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
  Descriptor destination(::open(to.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!destination) throw FileError("写入", to.path(), errno);
  try {
    const bool isSeen = copyData(source.get(), destination.get(), from, to, visit);
    copyOwnerAttributesAndMode(source.get(), destination.get(), info, to, Missing::isAccepted);
    const timespec times[2] = {info.st_atim, info.st_mtim};
    if (futimens(destination.get(), times) != 0) throw FileError("写入", to.path(), errno);
    if (fsync(destination.get()) != 0) throw FileError("写入", to.path(), errno);
    if (::close(destination.release()) != 0) throw FileError("写入", to.path(), errno);
    return isSeen;
  } catch (...) {
    ::unlink(to.path().c_str());
    throw;
  }
}

void copyAttributes(const URL& from, const URL& to) {
  const Descriptor source = openForReading(from);
  const Descriptor destination = openForReading(to);
  struct stat info {};
  if (fstat(source.get(), &info) != 0) throw FileError("读取", from.path(), errno);
  copyOwnerAttributesAndMode(source.get(), destination.get(), info, to, Missing::isError);
}

void setTimes(const URL& url, const Times& times) {
  const Descriptor file = openForReading(url);
  const timespec values[2] = {times.accessed, times.modified};
  if (futimens(file.get(), values) != 0) throw FileError("写入", url.path(), errno);
}

}  // namespace tidewell::files
