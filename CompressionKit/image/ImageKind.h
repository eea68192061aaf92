// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string_view>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// The kinds of image that are compressed, told by file name; content is judged by `ImageFacts::inspect`.
class ImageKind {
 public:
  enum Value { jpeg, png, gif, heic };

  constexpr ImageKind(Value value) : value_(value) {}  // NOLINT(google-explicit-constructor): acts as enum
  constexpr operator Value() const { return value_; }  // NOLINT(google-explicit-constructor)

  /// By file extension in any letter case; nothing for any other extension.
  static std::optional<ImageKind> from(const URL& url);
  static std::optional<ImageKind> fromRawValue(std::string_view rawValue);
  std::string_view rawValue() const;
  /// Whether such a container may carry this kind's extension.
  bool accepts(Container container) const;

 private:
  Value value_;
};

}  // namespace tidewell
