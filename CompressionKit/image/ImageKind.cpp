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

bool ImageKind::accepts(std::string_view typeIdentifier) const {
  switch (value_) {
    case jpeg:
      return typeIdentifier == "public.jpeg";
    case png:
      return typeIdentifier == "public.png";
    case gif:
      return typeIdentifier == "com.compuserve.gif";
    case heic:
      break;
  }
  return typeIdentifier == "public.heic" || typeIdentifier == "public.heif";
}

}  // namespace tidewell
