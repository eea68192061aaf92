#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tidewell {

/// A failed operation on a file or another service of the operating system. `what()` is text for the user,
/// in Chinese, naming the file and the reason.
class FileError : public std::exception {
 public:
  /// `action` is what was attempted ("打开", "读取", …), `code` an errno value.
  FileError(std::string_view action, std::string_view path, int code);

  const char* what() const noexcept override { return message_.c_str(); }
  int code() const { return code_; }
  /// The file or one of its directories does not exist.
  bool isNoSuchFile() const;

 private:
  std::string message_;
  int code_;
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
