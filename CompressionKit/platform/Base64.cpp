// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Base64.h"

#include <openssl/evp.h>

#include <algorithm>
#include <limits>

namespace tidewell {
namespace {

const unsigned char* unsignedBytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bool isDigit(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

}  // namespace

std::string base64Encoded(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // the library ends its text with a NUL
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), unsignedBytes(bytes),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::optional<std::string> base64Decoded(std::string_view text) {
  // The library forgives white space and strange filling; a command must not mean two things.
  if (text.size() % 4 != 0 || text.size() > std::numeric_limits<int>::max()) return std::nullopt;
  std::size_t filling = 0;
  while (filling < 2 && filling < text.size() && text[text.size() - 1 - filling] == '=') ++filling;
  if (!std::ranges::all_of(text.substr(0, text.size() - filling), isDigit)) return std::nullopt;

  std::string bytes(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), unsignedBytes(text),
                                     static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(length) - filling);
  return bytes;
}

}  // namespace tidewell
