// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "CompressionKit/codecs/ImageSource.h"

/// The box structure of a HEIF file (ISO/IEC 14496-12). Every number in a file is hostile until checked.
namespace tidewell::heif {

/// A reader that answers zero beyond the end and remembers that it did.
class Bytes {
 public:
  explicit Bytes(std::string_view data) : data_(data) {}

  bool good() const { return good_; }
  bool atEnd() const { return position_ >= data_.size(); }
  std::size_t remaining() const { return data_.size() - position_; }

  std::uint64_t number(std::size_t bytes) {
    std::uint64_t value = 0;
    for (const char byte : take(bytes)) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
  }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint32_t u16() { return static_cast<std::uint32_t>(number(2)); }
  std::uint32_t u8() { return static_cast<std::uint32_t>(number(1)); }

  /// Empty when fewer are left.
  std::string_view take(std::size_t bytes) {
    if (bytes > remaining()) {
      good_ = false;
      position_ = data_.size();
      return {};
    }
    const auto taken = data_.substr(position_, bytes);
    position_ += bytes;
    return taken;
  }

 private:
  std::string_view data_;
  std::size_t position_ = 0;
  bool good_ = true;
};

struct Box {
  std::string_view type;
  std::string_view payload;
};

/// The next box, or nothing at the end or where the bytes are no box.
std::optional<Box> nextBox(Bytes& bytes);

/// Of the first box of this type.
std::optional<std::string_view> payloadOf(std::string_view type, std::string_view boxes);

struct FullBox {
  std::uint32_t version = 0;
  std::uint32_t flags = 0;
};

/// What a "full box" starts with.
FullBox fullBox(Bytes& bytes);

/// `heic`, `heif` or `avif` by the brands of the "ftyp" box that opens the file; nothing
/// for other files. `head` is the file's first bytes, `headBytes` are enough.
std::optional<Container> container(std::string_view head);
constexpr std::size_t headBytes = 512;

}  // namespace tidewell::heif
