// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/UUID.h"

#include <sys/random.h>

#include <cerrno>

#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

constexpr bool hyphenAt(std::size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

UUID UUID::random() {
  UUID uuid;
  // Reads of up to 256 bytes are never cut short, but can be interrupted before the pool is ready.
  while (getrandom(uuid.bytes_.data(), uuid.bytes_.size(), 0) != static_cast<ssize_t>(uuid.bytes_.size())) {
    if (errno != EINTR) throw FileError("读取", "getrandom", errno);
  }
  uuid.bytes_[6] = static_cast<std::uint8_t>((uuid.bytes_[6] & 0x0F) | 0x40);
  uuid.bytes_[8] = static_cast<std::uint8_t>((uuid.bytes_[8] & 0x3F) | 0x80);
  return uuid;
}

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  UUID uuid;
  std::size_t digit = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (hyphenAt(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexValue(text[i]);
    if (value < 0) return std::nullopt;
    auto& byte = uuid.bytes_[digit / 2];
    byte = static_cast<std::uint8_t>((byte << 4) | value);
    ++digit;
  }
  return uuid;
}

bool UUID::isCanonical(std::string_view text) {
  const auto uuid = parse(text);
  return uuid && uuid->string() == text;
}

std::string UUID::string() const {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (const auto byte : bytes_) {
    if (hyphenAt(text.size())) text.push_back('-');
    text.push_back(digits[byte >> 4]);
    text.push_back(digits[byte & 0x0F]);
  }
  return text;
}

}  // namespace tidewell
