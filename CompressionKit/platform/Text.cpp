// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>

namespace tidewell {
namespace {

constexpr std::int32_t replacementCharacter = 0xFFFD;

struct Decoded {
  std::int32_t codePoint;
  std::size_t length;  ///< of the sequence, or of the maximal subpart of a broken one
  bool valid;
};

bool isBetween(unsigned char byte, unsigned low, unsigned high) {
  return byte >= low && byte <= high;
}

/// Decodes the first sequence of non-empty text by the table of well-formed sequences (Unicode Standard,
/// table 3-7). The library's decoder does not tell how long a broken sequence is.
Decoded decodeFirst(std::string_view text) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = at(0);
  if (lead < 0x80) return {lead, 1, true};

  std::size_t length = 0;
  unsigned low = 0x80;  // of the second byte: narrower for leads that allow overlong forms or surrogates
  unsigned high = 0xBF;
  std::int32_t codePoint = 0;
  if (isBetween(lead, 0xC2, 0xDF)) {
    length = 2;
    codePoint = lead & 0x1F;
  } else if (isBetween(lead, 0xE0, 0xEF)) {
    length = 3;
    codePoint = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (isBetween(lead, 0xF0, 0xF4)) {
    length = 4;
    codePoint = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {replacementCharacter, 1, false};
  }
  for (std::size_t i = 1; i < length; ++i) {
    if (i >= text.size() || !isBetween(at(i), low, high)) return {replacementCharacter, i, false};
    codePoint = codePoint << 6 | (at(i) & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  return {codePoint, length, true};
}

/// The length of the longest valid start of `text`.
std::size_t validLength(std::string_view text) {
  std::size_t position = 0;
  while (position < text.size()) {
    const Decoded next = decodeFirst(text.substr(position));
    if (!next.valid) break;
    position += next.length;
  }
  return position;
}

bool isWhitespace(std::int32_t codePoint) {
  if (codePoint < 0x80) return codePoint == ' ' || (codePoint >= '\t' && codePoint <= '\r');
  const auto category = utf8proc_category(codePoint);
  return codePoint == 0x85 || category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
         category == UTF8PROC_CATEGORY_ZP;
}

}  // namespace

bool isValidUTF8(std::string_view bytes) {
  return validLength(bytes) == bytes.size();
}

std::string repairedUTF8(std::string_view bytes) {
  std::string result;
  result.reserve(bytes.size());
  for (;;) {
    const std::size_t valid = validLength(bytes);
    result.append(bytes.substr(0, valid));
    bytes.remove_prefix(valid);
    if (bytes.empty()) return result;
    result.append("\xEF\xBF\xBD");  // U+FFFD
    bytes.remove_prefix(decodeFirst(bytes).length);
  }
}

std::string characterPrefix(std::string_view text, std::size_t count) {
  if (count == 0) return {};
  std::size_t position = 0;
  std::size_t characters = 0;
  std::int32_t previous = 0;
  std::int32_t state = 0;
  while (position < text.size()) {
    const Decoded next = decodeFirst(text.substr(position));
    if (position == 0 || utf8proc_grapheme_break_stateful(previous, next.codePoint, &state)) {
      if (characters++ == count) break;
    }
    previous = next.codePoint;
    position += next.length;
  }
  return std::string(text.substr(0, position));
}

std::string printable(std::string_view path) {
  const std::string repaired = repairedUTF8(path);
  std::string result;
  for (std::string_view rest = repaired; !rest.empty();) {
    utf8proc_int32_t character = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(rest.data());
    const auto size = static_cast<std::size_t>(std::max<utf8proc_ssize_t>(
        utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(rest.size()), &character), 1));
    const bool control = character < 0x20 || (character >= 0x7f && character < 0xa0);
    const bool turnsDirection =
        (character >= 0x202a && character <= 0x202e) || (character >= 0x2066 && character <= 0x2069);
    result += control || turnsDirection ? "?" : rest.substr(0, size);
    rest.remove_prefix(size);
  }
  return result;
}

std::string fittingName(std::string_view stem, std::string_view end) {
  constexpr std::size_t room = 255;
  if (stem.size() + end.size() > room && end.size() < room) {
    std::size_t kept = room - end.size();
    const auto continues = [&] { return (static_cast<unsigned char>(stem[kept]) & 0xC0) == 0x80; };
    for (int i = 0; i < 3 && kept > 0 && continues(); ++i) --kept;
    stem = stem.substr(0, kept);
  }
  return std::string(stem).append(end);
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty()) {
    const Decoded first = decodeFirst(text);
    if (!isWhitespace(first.codePoint)) break;
    text.remove_prefix(first.length);
  }
  // The end of the last character that stays; walked forwards, where sequences are found without guessing.
  std::size_t end = 0;
  for (std::size_t position = 0; position < text.size();) {
    const Decoded next = decodeFirst(text.substr(position));
    position += next.length;
    if (!isWhitespace(next.codePoint)) end = position;
  }
  return text.substr(0, end);
}

}  // namespace tidewell
