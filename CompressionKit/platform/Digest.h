// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// SHA-256 of a file's contents as 64 lower-case hexadecimal digits, read in pieces of 1 MiB.
/// Throws `FileError`.
std::string hash(const URL& url);

/// Copies as `files::copyItem`; the hash of the copy, taken while it is written where that can be.
std::string copyAndHash(const URL& from, const URL& to);

/// SHA-256 of some bytes, in the same form.
std::string hash(std::string_view bytes);

/// The file's size in bytes; links are followed. Throws `FileError`.
std::int64_t fileSize(const URL& url);

}  // namespace tidewell
