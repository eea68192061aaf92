#pragma once

#include <exception>
#include <string>

namespace tidewell {

/// What any failure of the kit means, in the user's language.
std::string describedError(const std::exception_ptr& error);

/// The reason behind an errno value in the user's language.
std::string describedErrno(int code);

/// The failure as scripts read it: the case of a `CompressionError` ("tool_missing"), the name of the errno
/// value ("ENOSPC"), "interrupted", or "internal".
std::string errorCode(const std::exception_ptr& error);

}  // namespace tidewell
