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
};
constexpr Format formats[] = {
    {looksLikeJPEG, readJPEG, jpegWith},
    {looksLikePNG, readPNG, pngWith},
    {looksLikeGIF, readGIF, gifWith},
    {[](std::string_view head) { return heif::container(head).has_value(); }, readHEIC, nullptr},
};

const Format* formatOf(const ImageInput& file) {
  const std::string head = file.head(heif::headBytes);
  const auto* found = std::find_if(std::begin(formats), std::end(formats),
                                   [&](const Format& format) { return format.matches(head); });
  return found == std::end(formats) ? nullptr : found;
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
  const std::string output = to->with(pieces, data);
  if (output == data) return;
  // A candidate in a private folder: it is flushed when it takes the original's place.
  files::writeAtomically(candidate, output, files::Durability::cached);
}

}  // namespace tidewell::metadata
