// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/Images.h"

#include <algorithm>
#include <string>

#include "CompressionKit/codecs/HEICDecoder.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/HEIFLimits.h"
#include "CompressionKit/codecs/Premultiply.h"

namespace tidewell::fuzz {
namespace {

/// Whether the pictures in a HEIF file are small, whatever it declares: a decoder clears the memory of a
/// picture before it looks at what is in it.
bool isSmallHEIF(Input input) {
  const std::string_view file = text(input);
  const auto meta = heif::payloadOf("meta", file);
  if (!meta || meta->size() < 4) return false;
  const heif::ReadAt readAt = [&](std::uint64_t offset, std::size_t bytes) {
    const bool inFile = offset <= file.size() && bytes <= file.size() - offset;
    return std::string(inFile ? file.substr(offset, bytes) : std::string_view());
  };
  constexpr auto pixels = static_cast<std::uint64_t>(maximumPixels);
  heif::checkLimits(meta->substr(4), readAt, {pixels, pixels, 8 * pixels, 64});
  return true;
}

/// Whether `work` does without refusing the image.
template <typename Work>
bool succeeds(const Work& work) {
  try {
    work();
    return true;
  } catch (const ImageDecodeError&) {
    return false;
  }
}

template <typename Sample, typename Reader>
std::vector<Sample> allRows(Reader& rows) {
  const auto samples = static_cast<std::size_t>(rows.width()) * 4;
  std::vector<Sample> pixels(samples * static_cast<std::size_t>(rows.height()));
  for (std::size_t at = 0; at < pixels.size(); at += samples)
    rows.read(std::span(pixels).subspan(at, samples));
  return pixels;
}

/// What is passed over must not change what is read afterwards.
void skipAndRead(ImageSource& source, std::size_t index, const std::vector<std::uint8_t>& pixels) {
  const auto rows = source.rows(index);
  const auto bytes = static_cast<std::size_t>(rows->width()) * 4;
  std::vector<std::uint8_t> row(bytes);
  std::int64_t y = 0;
  for (const std::int64_t skipped : {rows->height() / 3, rows->height() / 2}) {
    if (y + skipped >= rows->height()) return;
    rows->skip(skipped);
    y += skipped;
    rows->read(row);
    require(std::equal(row.begin(), row.end(), pixels.begin() + y * static_cast<std::int64_t>(bytes)),
            "rows behind skipped ones are what they are without skipping");
    ++y;
  }
}

/// `tolerance` is what rounding may change of a sample of 16 bits.
void compareDepths(const std::vector<std::uint8_t>& pixels, const std::vector<std::uint16_t>& deep,
                   int tolerance) {
  require(deep.size() == pixels.size(), "both depths have one size");
  std::vector<std::uint8_t> narrow(deep.size());
  for (std::size_t i = 0; i < deep.size(); ++i) {
    require(tolerance > 0 || deep[i] % 257 == 0, "8-bit samples are widened by 257");
    narrow[i] = static_cast<std::uint8_t>((deep[i] + 128) / 257);
  }
  premultiply(narrow);
  const auto agree = [=](std::uint8_t a, std::uint8_t b) { return std::abs(a - b) <= tolerance; };
  require(std::ranges::equal(narrow, pixels, agree), "both depths have the same pixels");
}

}  // namespace

std::unique_ptr<ImageSource> openSmall(Input input) {
  std::unique_ptr<ImageSource> source;
  const bool isSmall = succeeds([&] {
    const bool isHEIF = heif::container(text(input).substr(0, heif::headBytes)).has_value();
    if (isHEIF && !isSmallHEIF(input)) throw ImageDecodeError("large");
    if (isHEIF) {
      source = std::make_unique<HEICSource>(ImageInput(input));
    } else {
      source = ImageSource::open(ImageInput(input));
    }
    if (source->count() < 1) throw ImageDecodeError("empty");
    for (std::size_t i = 0; i < std::min(source->count(), maximumImages); ++i) {
      const ImageProperties properties = source->properties(i);
      if (properties.width < 1 || properties.height > maximumPixels / properties.width)
        throw ImageDecodeError("large");
    }
  });
  return isSmall ? std::move(source) : nullptr;
}

std::optional<std::vector<std::uint8_t>> pixelsOf(ImageSource& source, std::size_t index,
                                                  std::int64_t minimumLongSide) {
  std::optional<std::vector<std::uint8_t>> pixels;
  succeeds([&] { pixels = allRows<std::uint8_t>(*source.rows(index, minimumLongSide)); });
  return pixels;
}

std::optional<std::vector<std::uint16_t>> deepPixelsOf(ImageSource& source, std::size_t index) {
  std::optional<std::vector<std::uint16_t>> pixels;
  succeeds([&] { pixels = allRows<std::uint16_t>(*source.deepRows(index)); });
  return pixels;
}

bool isSound(ImageSource& source, std::size_t index) {
  return succeeds([&] { source.verify(index); });
}

void decodeInEveryWay(ImageSource& source) {
  for (std::size_t i = 0; i < std::min(source.count(), maximumImages); ++i) {
    const auto pixels = pixelsOf(source, i);
    const auto deep = deepPixelsOf(source, i);
    require(pixels.has_value() == deep.has_value(), "both depths can be decoded, or none");
    require(pixels == pixelsOf(source, i), "a second decoding is as the first");
    for (const std::int64_t side : {1, 33}) {
      require(pixelsOf(source, i, side).has_value() || !pixels, "what can be decoded can be reduced");
    }
    if (!pixels) continue;
    skipAndRead(source, i, *pixels);
    const bool isNarrow = source.properties(i).bitsPerSample == 8;
    if (isNarrow || source.container() == Container::png) compareDepths(*pixels, *deep, isNarrow ? 0 : 1);
  }
}

}  // namespace tidewell::fuzz
