#include "CompressionKit/codecs/JPEGHeader.h"

#include <cstdint>
#include <map>
#include <string_view>

#include "CompressionKit/codecs/Exif.h"

namespace tidewell {
namespace {

constexpr int app1 = 0xE1, app2 = 0xE2, startOfImage = 0xD8, endOfImage = 0xD9, startOfScan = 0xDA;
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

/// The next marker's code; -1 at the end. Passes over stray bytes as the decoder does: a photo must not lose
/// its orientation to them.
int nextMarker(std::FILE* file) {
  for (;;) {
    int code = std::getc(file);
    while (code >= 0 && code != 0xFF) code = std::getc(file);
    while (code == 0xFF) code = std::getc(file);
    if (code != 0) return code;
  }
}

}  // namespace

JPEGHeader readJPEGHeader(std::FILE* file, const StopToken& stop) {
  JPEGHeader header;
  ProfileParts profile;
  bool hasExif = false;
  std::string body;
  std::rewind(file);
  for (;;) {
    stop.throwIfStopped();
    const int marker = nextMarker(file);
    if (marker < 0 || marker == startOfScan || marker == endOfImage) break;
    if (marker == startOfImage || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) continue;
    const int high = std::getc(file), low = std::getc(file);
    const int length = high * 256 + low - 2;
    if (high < 0 || low < 0 || length < 0) break;
    if (marker != app1 && marker != app2) {
      if (std::fseek(file, length, SEEK_CUR) != 0) break;
      continue;
    }
    body.resize(static_cast<std::size_t>(length));
    if (std::fread(body.data(), 1, body.size(), file) != body.size()) break;
    if (marker == app2) profile.add(body);
    if (marker == app1 && !hasExif && body.starts_with(exifPrefix)) {
      hasExif = true;
      header.exif = readExif(std::string_view(body).substr(exifPrefix.size()));
    }
  }
  header.icc = profile.joined();
  return header;
}

}  // namespace tidewell
