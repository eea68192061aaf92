// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tidewell {

/// What any failure of the kit means, in the user's language.
std::string describedError(const std::exception_ptr& error);

/// The same for a failure of which only the service's own words are left, in a result or a report; those
/// words where it is not known what they mean.
std::string describedServiceText(std::string_view text);

/// The same for what failed with the file at `path`, which it names once.
std::string describedError(const std::exception_ptr& error, const std::string& path);

/// The reason behind an errno value in the user's language.
std::string describedErrno(int code);

/// The failure as scripts read it: the case of a `CompressionError` ("tool_missing"), the name of the errno
/// value ("ENOSPC"), "interrupted", or "internal".
std::string errorCode(const std::exception_ptr& error);

}  // namespace tidewell
