// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/JPEGMetadata.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/codecs/JPEGSegments.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/image/ImageFacts.h"
#include "CompressionKit/image/OrientationExif.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

constexpr std::size_t headBytes = 0x100000;  // what the walks look at of a file
constexpr std::size_t usualBytes = 0x10000;  // what most of them need

constexpr int quantisationTables = 0xDB;

unsigned byteAt(std::string_view data, std::size_t i) {
  return static_cast<unsigned char>(data[i]);
}

unsigned bigEndian16(std::string_view data, std::size_t i) {
  return byteAt(data, i) << 8 | byteAt(data, i + 1);
}

bool isJPEG(std::string_view data) {
  return data.size() > 3 && byteAt(data, 0) == 0xFF && data[1] == '\xD8';
}

/// One step of a walk over the segments before the first scan.
struct Segment {
  std::size_t start;  ///< the first 0xFF
  std::size_t at;     ///< the marker's own byte
  int marker;
  std::size_t end;  ///< one past the body, which only segments with a length have

  /// What follows the length.
  std::string_view body(std::string_view data) const { return data.substr(at + 3, end - (at + 3)); }
};

/// The marker at `i`, fill bytes skipped. Nothing when there is none.
std::optional<Segment> markerAt(std::string_view data, std::size_t i) {
  if (i + 3 >= data.size() || byteAt(data, i) != 0xFF) return std::nullopt;
  std::size_t at = i;
  while (at < data.size() && byteAt(data, at) == 0xFF) ++at;
  if (at == data.size()) return std::nullopt;
  return Segment{.start = i, .at = at, .marker = static_cast<int>(byteAt(data, at)), .end = at + 1};
}

/// Reads the length behind the marker; false when it is missing or runs past the end.
bool measure(std::string_view data, Segment& segment) {
  if (segment.at + 2 >= data.size()) return false;
  const std::size_t length = bigEndian16(data, segment.at + 1);
  if (length < 2 || length > data.size() - (segment.at + 1)) return false;
  segment.end = segment.at + 1 + length;
  return true;
}

/// The first answer that `visit(marker, body)` gives to a segment with a length before the first scan; false
/// when it gives none up to there. Nothing where the data ends before that, or is malformed.
template <typename Visit>
std::optional<bool> answerIn(std::string_view data, const Visit& visit) {
  if (!isJPEG(data)) return std::nullopt;
  for (std::size_t i = 2;;) {
    auto segment = markerAt(data, i);
    if (!segment) return std::nullopt;
    if (segment->marker == JPEGSegments::endOfImage || segment->marker == JPEGSegments::startOfScan) {
      return false;
    }
    if (!JPEGSegments::isStandalone(segment->marker)) {
      if (!measure(data, *segment)) return std::nullopt;
      if (const std::optional<bool> answer = visit(segment->marker, segment->body(data))) return answer;
    }
    i = segment->end;
  }
}

/// The same of a file's first MiB; false also where there is no answer in it, and for what cannot be read.
template <typename Visit>
bool answerOfSegments(const URL& url, const Visit& visit) {
  try {
    for (const std::size_t bytes : {usualBytes, headBytes}) {
      const std::string data = files::read(url, bytes);
      if (const auto answer = answerIn(data, visit)) return *answer;
      if (data.size() < bytes) break;  // that was all
    }
  } catch (const std::exception&) {
  }
  return false;
}

/// The TIFF structure of a multi-picture index, from its byte-order mark to the end of its segment.
class MultiPictureIndex {
 public:
  explicit MultiPictureIndex(std::string_view tiff) : tiff_(tiff) {}

  /// Nothing when the index does not say how many; false when it is malformed.
  std::optional<bool> announcesSeveral() {
    const auto mark = tiff_.substr(0, 2);
    if (mark != "II" && mark != "MM") return false;
    littleEndian_ = mark == "II";
    const auto magic = value(2, 2), offset = value(4, 4);
    if (magic != 42U || !offset || *offset > tiff_.size() - 2) return false;
    const auto count = value(*offset, 2);
    if (!count || *count > (tiff_.size() - *offset - 2) / 12) return false;
    for (std::size_t k = 0; k < *count; ++k) {
      const std::size_t entry = *offset + 2 + 12 * k;
      const auto images = value(entry + 8, 4);
      if (value(entry, 2) == 0xB001U && value(entry + 2, 2) == 4U && value(entry + 4, 4) == 1U && images) {
        return *images > 1;
      }
    }
    return std::nullopt;
  }

 private:
  std::optional<std::uint32_t> value(std::size_t position, std::size_t size) const {
    if (position > tiff_.size() || tiff_.size() - position < size) return std::nullopt;
    std::uint32_t result = 0;
    for (std::size_t i = 0; i < size; ++i) {
      result = result << 8 | byteAt(tiff_, position + (littleEndian_ ? size - 1 - i : i));
    }
    return result;
  }

  std::string_view tiff_;
  bool littleEndian_ = false;
};

/// The average step of the first table with id 0 in a DQT body. Nothing without such a table; -1 for a body
/// that is malformed.
std::optional<double> averageStep(std::string_view body) {
  for (std::size_t i = 0; i < body.size();) {
    const unsigned head = byteAt(body, i++);
    if (head > 31) return -1;
    const std::size_t entry = head >> 4 ? 2 : 1;
    if (body.size() - i < 64 * entry) return -1;
    if ((head & 15U) == 0) {
      unsigned sum = 0;
      for (std::size_t k = 0; k < 64; ++k) {
        sum += entry == 2 ? bigEndian16(body, i + 2 * k) : byteAt(body, i + k);
      }
      return sum / 64.0;
    }
    i += 64 * entry;
  }
  return std::nullopt;
}

}  // namespace

bool JPEGMetadata::hasMultiplePictures(const URL& url) {
  return answerOfSegments(url, [](int marker, std::string_view body) -> std::optional<bool> {
    constexpr std::string_view identifier("MPF\0", 4);
    if (marker != JPEGSegments::app2 || body.size() < 16 || !body.starts_with(identifier))
      return std::nullopt;
    return MultiPictureIndex(body.substr(identifier.size())).announcesSeveral();
  });
}

bool ImageFacts::hasFineJPEGQuantization(const URL& url) {
  return answerOfSegments(url, [](int marker, std::string_view body) -> std::optional<bool> {
    if (marker != quantisationTables) return std::nullopt;
    const auto step = averageStep(body);
    if (!step) return std::nullopt;
    return *step > 0 && *step <= 2;
  });
}

void JPEGMetadata::preserveOrientation(int orientation, const URL& url, const StopToken& stop) {
  if (orientation < 1 || orientation > 8) throw CompressionError::validationFailed();
  const auto current = decoding([&] {
    const auto source = ImageSource::open(url, stop);
    if (source->container() != Container::jpeg) throw CompressionError::invalidImage();
    return source->properties(0).orientation;
  });
  if (current.value_or(1) == orientation) return;

  const std::string data = files::read(url);
  if (!isJPEG(data)) throw CompressionError::invalidImage();
  constexpr std::string_view exifStart("Exif\0\0", 6);
  std::string output =
      data.substr(0, 2) +
      JPEGSegments::bytes(JPEGSegments::app1, std::string(exifStart) + orientationExif(orientation));
  for (std::size_t i = 2;;) {
    auto segment = markerAt(data, i);
    if (!segment) throw CompressionError::invalidImage();
    if (segment->marker == JPEGSegments::endOfImage || segment->marker == JPEGSegments::startOfScan) {
      output.append(data, segment->start);
      break;
    }
    if (!measure(data, *segment)) throw CompressionError::invalidImage();
    const bool isExif = segment->marker == JPEGSegments::app1 && segment->body(data).starts_with(exifStart);
    if (!isExif) output.append(data, segment->start, segment->end - segment->start);
    i = segment->end;
  }
  // A candidate in a private folder: it is flushed when it takes the original's place.
  files::writeAtomically(url, output, files::Durability::cached);
}

}  // namespace tidewell
