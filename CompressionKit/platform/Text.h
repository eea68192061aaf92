// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tidewell {

bool isValidUTF8(std::string_view bytes);

/// `bytes` with every invalid or cut-off UTF-8 sequence replaced by U+FFFD (the maximal-subpart practice
/// of the Unicode Standard).
std::string repairedUTF8(std::string_view bytes);

/// The first `count` user-perceived characters (extended grapheme clusters) of UTF-8 text.
std::string characterPrefix(std::string_view text, std::size_t count);

/// A name or path as people may see it: valid UTF-8, without control characters.
std::string printable(std::string_view path);

/// The name of a file from its stem and how it ends. A stem that leaves no room in a name (255 bytes) is cut,
/// between characters where it is UTF-8.
std::string fittingName(std::string_view stem, std::string_view end);

/// White space and line ends removed from both ends.
std::string_view trimmed(std::string_view text);

}  // namespace tidewell
