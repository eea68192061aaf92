// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// SHA-256 of a file's contents as 64 lower-case hexadecimal digits, read in pieces of 1 MiB.
/// Throws `FileError`.
std::string hash(const URL& url);

/// The same of what a reader gives: it fills a buffer and says how many bytes came, fewer only at the end.
/// `expected` is how many there will be in all, or a guess. Throws what the reader throws.
using PieceReader = std::function<std::size_t(char* to, std::size_t size)>;
std::string hash(const PieceReader& read, std::int64_t expected);

/// Copies as `files::copyItem`; the hash of the copy, taken while it is written where that can be.
std::string copyAndHash(const URL& from, const URL& to);

/// SHA-256 of some bytes, in the same form.
std::string hash(std::string_view bytes);

/// The file's size in bytes; links are followed. Throws `FileError`.
std::int64_t fileSize(const URL& url);

}  // namespace tidewell
