// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <exception>
#include <string>
#include <string_view>

#include "CompressionKit/platform/FixedText.h"

namespace tidewell {

inline constexpr std::array<std::string_view, 14> fileActions{
    "打开", "读取",       "写入",     "创建", "创建文件夹", "读取文件夹", "复制",
    "移动", "复制属性到", "设置权限", "删除", "限制",       "启动",       "等待"};
/// What was attempted, by the word that the service has for it.
using FileAction = FixedText<fileActions>;

/// A failed operation on a file or another service of the operating system. `what()` is text for the user,
/// in Chinese, naming the file and the reason.
class FileError : public std::exception {
 public:
  /// `code` is an errno value.
  FileError(FileAction action, std::string_view path, int code);

  const char* what() const noexcept override { return message_.c_str(); }
  FileAction action() const { return action_; }
  /// As it was given; not always a path of the file system.
  const std::string& path() const { return path_; }
  int code() const { return code_; }
  /// The file or one of its directories does not exist.
  bool isNoSuchFile() const;

 private:
  FileAction action_;
  std::string path_;
  int code_;
  std::string message_;
};

/// Work that ended early because the service was asked to stop. Never recorded as a failure of a tool.
class Interrupted : public std::exception {
 public:
  const char* what() const noexcept override { return "压缩被中断，原图未改动"; }
};

/// The reason behind an errno value in Chinese, or the C library's text where we have none.
std::string describeErrno(int code);

/// The user-facing text of any exception: `what()` of our own types, a Chinese text for those of the
/// standard library.
std::string localizedDescription(const std::exception& error);
std::string localizedDescription(const std::exception_ptr& error);

}  // namespace tidewell
