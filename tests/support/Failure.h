// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <exception>
#include <optional>
#include <string>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell::test {

/// Which of our failures a call ends with; nothing when it ends well. Any other error is passed on.
template <typename Call>
std::optional<CompressionError::Case> caseOf(Call&& call) {
  try {
    call();
  } catch (const CompressionError& error) {
    return error.kind();
  }
  return std::nullopt;
}

/// The errno value of the `FileError` that a call ends with; 0 when it ends well.
template <typename Call>
int errnoOf(Call&& call) {
  try {
    call();
  } catch (const FileError& error) {
    return error.code();
  }
  return 0;
}

/// The text that a user reads about the error; "no error" without one. For failures that only their text
/// tells apart.
template <typename Call>
std::string textOf(Call&& call) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "no error";
}

}  // namespace tidewell::test
