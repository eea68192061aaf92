// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "CompressionKit/codecs/HEICDecoder.h"
#include "CompressionKit/image/HEICAnswer.h"
#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

// Decodes one HEIC file for `HEICDecoding`, which starts it confined to what it is given open: the file as
// its standard input, a file for its answer as 3 and an empty one for the PNG as 4. Status 0 with an answer,
// 1 for a file that cannot be decoded.
//
//   heic-decoder inspect|convert|show

namespace {

using namespace tidewell;

ImageFacts factsOf(HEICSource& source, std::size_t index) {
  const ImageProperties properties = source.properties(index);
  ImageFacts facts;
  facts.kind = ImageKind::heic;
  facts.width = properties.width;
  facts.height = properties.height;
  facts.frameCount = static_cast<std::int64_t>(source.count());
  facts.hasAlpha = properties.hasAlpha;
  facts.profileName = properties.profileName ? properties.profileName : properties.colorSpaceName;
  facts.orientation = properties.orientation.value_or(1);
  return facts;
}

/// Whether the PNG is complete: one that finds no space says nothing against the HEIC file.
bool writePNG(HEICSource& source, std::size_t index, Descriptor png) {
  try {
    source.writeUprightPNG(index, std::move(png));
    return true;
  } catch (const FileError&) {
    return false;
  }
}

void decode(std::string_view purpose) {
  HEICSource source(ImageInput(Descriptor(STDIN_FILENO)));
  const Descriptor answer(3);
  Descriptor png(4);
  const bool shows = purpose == "show";
  const std::size_t index = shows ? source.primaryIndex() : 0;
  HEICAnswer said{.facts = factsOf(source, index)};
  source.verify(index);
  if (shows || (purpose == "convert" && source.count() == 1)) {
    said.hasPNG = writePNG(source, index, std::move(png));
  }
  const std::string text = said.text();
  files::writeFully(answer.get(), text.data(), text.size(), URL::file("/answer"));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    decode(argc == 2 ? argv[1] : "");
    return 0;
  } catch (const ImageDecodeError& error) {
    std::fprintf(stderr, "heic-decoder: %s\n", error.reason().c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "heic-decoder: %s\n", error.what());
  }
  return 1;
}
