// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/image/Metadata.h"

#include <algorithm>
#include <string_view>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/codecs/HEIFBoxes.h"
#include "CompressionKit/codecs/JPEGDecoder.h"
#include "CompressionKit/codecs/PNGDecoder.h"
#include "CompressionKit/image/MetadataPieces.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell::metadata {
namespace {

struct Format {
  bool (*matches)(std::string_view head);
  void (*read)(const ImageInput& file, Pieces& pieces, const StopToken& stop);
  std::string (*with)(const Pieces& pieces, const std::string& candidate);
  std::string (*without)(const std::string& file);
};
constexpr Format formats[] = {
    {looksLikeJPEG, readJPEG, jpegWith, jpegWithout},
    {looksLikePNG, readPNG, pngWith, pngWithout},
    {looksLikeGIF, readGIF, gifWith, gifWithout},
    {[](std::string_view head) { return heif::container(head).has_value(); }, readHEIC, nullptr, nullptr},
};

const Format* formatOf(const ImageInput& file) {
  const std::string head = file.head(heif::headBytes);
  const auto* found = std::find_if(std::begin(formats), std::end(formats),
                                   [&](const Format& format) { return format.matches(head); });
  return found == std::end(formats) ? nullptr : found;
}

/// A candidate in a private folder: it is flushed when it takes the original's place.
void rewrite(const URL& candidate, const std::string& before, const std::string& after) {
  if (after != before) files::writeAtomically(candidate, after, files::Durability::cached);
}

}  // namespace

void Pieces::add(Piece piece) {
  bytes_ += sizeof(Piece) + piece.whole.size();  // many may be empty
  if (bytes_ > maximumBytes) throw CompressionError::validationFailed();
  all.push_back(std::move(piece));
}

Pieces readablePieces(const ImageInput& file, const StopToken& stop) {
  Pieces pieces;
  try {
    if (const Format* format = formatOf(file)) format->read(file, pieces, stop);
  } catch (const CompressionError& error) {
    pieces.isCut = error.kind() == CompressionError::Case::validationFailed;
  }
  return pieces;
}

void carry(const URL& original, const URL& candidate, const StopToken& stop) {
  const ImageInput source(original), target(candidate);
  const Format *from = formatOf(source), *to = formatOf(target);
  if (from == nullptr || to == nullptr) throw CompressionError::invalidImage();
  const bool converts = from->read == readHEIC && to->read == readPNG;
  if (from != to && !converts) throw CompressionError::validationFailed();
  if (to->with == nullptr) throw CompressionError::validationFailed();

  Pieces pieces;
  from->read(source, pieces, stop);
  if (from->read == readJPEG) dropReferences(pieces);
  if (converts) pieces = asUprightPNG(pieces);
  const std::string data = files::read(candidate);
  rewrite(candidate, data, to->with(pieces, data));
}

void strip(const URL& file, const StopToken& stop) {
  const Format* format = formatOf(ImageInput(file));
  if (format == nullptr || format->without == nullptr) throw CompressionError::invalidImage();
  stop.throwIfStopped();
  const std::string data = files::read(file);
  rewrite(file, data, format->without(data));
}

}  // namespace tidewell::metadata
