// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/ImageKind.h"

#include <string>

namespace tidewell {

std::optional<ImageKind> ImageKind::from(const URL& url) {
  const std::string extension = asciiLowercased(url.pathExtension());
  if (extension == "jpg" || extension == "jpeg") return jpeg;
  if (extension == "png") return png;
  if (extension == "gif") return gif;
  if (extension == "heic" || extension == "heif") return heic;
  return std::nullopt;
}

std::optional<ImageKind> ImageKind::fromRawValue(std::string_view rawValue) {
  for (const ImageKind kind : {jpeg, png, gif, heic}) {
    if (kind.rawValue() == rawValue) return kind;
  }
  return std::nullopt;
}

std::string_view ImageKind::rawValue() const {
  switch (value_) {
    case jpeg:
      return "jpeg";
    case png:
      return "png";
    case gif:
      return "gif";
    case heic:
      break;
  }
  return "heic";
}

bool ImageKind::accepts(Container container) const {
  switch (container) {
    case Container::jpeg:
      return value_ == jpeg;
    case Container::png:
      return value_ == png;
    case Container::gif:
      return value_ == gif;
    case Container::heic:
    case Container::heif:
      return value_ == heic;
    case Container::avif:
      break;
  }
  return false;
}

}  // namespace tidewell
