// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tidewell {

/// Standard base64 (RFC 4648, section 4) with its fill characters, without line breaks.
std::string base64Encoded(std::string_view bytes);

/// Nothing for text with any other character, a length that is no multiple of four, or misplaced filling.
std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace tidewell
