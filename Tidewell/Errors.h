#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace tidewell {

/// A command line that cannot be understood; `what()` is told, and the status is 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What any failure of the kit means, in the user's language.
std::string describedError(const std::exception_ptr& error);

/// The reason behind an errno value in the user's language.
std::string describedErrno(int code);

/// The failure as scripts read it: the case of a `CompressionError` ("tool_missing"), the name of the errno
/// value ("ENOSPC"), "interrupted", or "internal".
std::string errorCode(const std::exception_ptr& error);

}  // namespace tidewell
