// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Error.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "CompressionKit/platform/Text.h"

namespace tidewell {
namespace {

constexpr std::pair<int, const char*> reasons[] = {
    {ENOENT, "文件不存在"},
    {ENOTDIR, "路径中有一部分不是文件夹"},
    {EISDIR, "这是一个文件夹"},
    {EACCES, "没有访问权限"},
    {EPERM, "操作不被允许"},
    {EROFS, "磁盘是只读的"},
    {ENOSPC, "磁盘空间不足"},
    {EDQUOT, "磁盘配额已用完"},
    {EFBIG, "文件过大"},
    {EIO, "磁盘读写出错"},
    {EEXIST, "同名文件已存在"},
    {ENOTEMPTY, "文件夹不为空"},
    {EXDEV, "不在同一个磁盘上"},
    {ELOOP, "符号链接层数过多"},
    {ENAMETOOLONG, "文件名过长"},
    {EMFILE, "打开的文件过多"},
    {ENFILE, "系统打开的文件过多"},
    {ENOMEM, "内存不足"},
    {EBUSY, "文件正被占用"},
    {ETXTBSY, "程序文件正被占用"},
    {ENOEXEC, "程序文件格式无效"},
    {ENOTSUP, "文件系统不支持此操作"},
    {ENODEV, "设备不存在"},
    {ESTALE, "网络文件已失效"},
    {EBADF, "文件没有打开"},
    {EPIPE, "读取的一方已关闭"},
};

}  // namespace

std::string describeErrno(int code) {
  for (const auto& [value, text] : reasons) {
    if (value == code) return text;
  }
  char buffer[256] = {};
  return strerror_r(code, buffer, sizeof buffer);  // the GNU variant returns the text
}

FileError::FileError(FileAction action, std::string_view path, int code)
    : action_(action), path_(path), code_(code) {
  const auto slash = path.rfind('/');
  const auto name =
      slash == std::string_view::npos || slash + 1 == path.size() ? path : path.substr(slash + 1);
  message_ = "无法" + std::string(action.text()) + "“" + repairedUTF8(name) + "”：" + describeErrno(code);
}

bool FileError::isNoSuchFile() const {
  return code_ == ENOENT || code_ == ENOTDIR;
}

std::string localizedDescription(const std::exception& error) {
  if (dynamic_cast<const std::bad_alloc*>(&error)) return describeErrno(ENOMEM);
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return describeErrno(system->code().value());
  }
  // A failed precondition of the standard library is a fault of ours; its text still helps a developer.
  if (dynamic_cast<const std::logic_error*>(&error) || dynamic_cast<const std::runtime_error*>(&error)) {
    return std::string("内部错误：") + error.what();
  }
  return error.what();
}

std::string localizedDescription(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& exception) {
    return localizedDescription(exception);
  } catch (...) {
    return "内部错误";
  }
}

}  // namespace tidewell
