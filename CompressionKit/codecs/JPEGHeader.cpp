// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/JPEGHeader.h"

#include <cstdint>
#include <map>
#include <string_view>

#include "CompressionKit/codecs/Exif.h"
#include "CompressionKit/codecs/JPEGSegments.h"

namespace tidewell {
namespace {

constexpr std::string_view exifPrefix("Exif\0\0", 6);
constexpr std::string_view iccPrefix("ICC_PROFILE\0", 12);

class ProfileParts {
 public:
  void add(std::string_view body) {
    if (!body.starts_with(iccPrefix) || body.size() < iccPrefix.size() + 2) return;
    const int number = static_cast<unsigned char>(body[iccPrefix.size()]);
    count_ = static_cast<unsigned char>(body[iccPrefix.size() + 1]);
    parts_.emplace(number, body.substr(iccPrefix.size() + 2));  // at most 255 parts of 64 KiB
  }
  std::string joined() const {
    std::string profile;
    for (int number = 1; number <= count_; ++number) {
      const auto part = parts_.find(number);
      if (part == parts_.end()) return {};
      profile += part->second;
    }
    return profile;
  }

 private:
  int count_ = 0;
  std::map<int, std::string> parts_;
};

}  // namespace

JPEGHeader readJPEGHeader(std::FILE* file, const StopToken& stop) {
  JPEGHeader header;
  ProfileParts profile;
  bool hasExif = false;
  const auto wanted = [](int marker) { return marker == JPEGSegments::app1 || marker == JPEGSegments::app2; };
  JPEGSegments::walk(file, stop, wanted, [&](int marker, const std::string& body) {
    if (marker == JPEGSegments::app2) profile.add(body);
    if (marker == JPEGSegments::app1 && !hasExif && body.starts_with(exifPrefix)) {
      hasExif = true;
      header.exif = readExif(std::string_view(body).substr(exifPrefix.size()));
    }
  });
  header.icc = profile.joined();
  return header;
}

}  // namespace tidewell
