// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Takes the language of the environment for all texts, whose catalogues lie below `share/locale` beside the
/// executable's folder. Numbers stay as machines read them. Call it before any thread exists.
void prepareTexts(const URL& executableDirectory);

/// The text in the user's language. Texts in the source are English.
const char* _(const char* text);

/// Marks a text that is translated later, where it is used.
constexpr const char* N_(const char* text) {
  return text;
}

/// `pattern` with "{1}" replaced by the first value, and so on.
std::string filled(std::string_view pattern, std::initializer_list<std::string_view> values);

/// The plural form that `count` asks for, translated, with "{1}" replaced by the count.
std::string counted(const char* one, const char* many, std::int64_t count);

}  // namespace tidewell
