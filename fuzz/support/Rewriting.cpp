// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "support/Rewriting.h"

#include <unistd.h>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "support/Images.h"

namespace tidewell::fuzz {
namespace {

/// There as long as the process.
const URL& folder() {
  static const files::TemporaryTree tree(
      locations::temporaryDirectory().appending("tidewell-fuzz-" + std::to_string(getpid())));
  files::createDirectories(tree.url(), 0700, files::Durability::cached);
  return tree.url();
}

}  // namespace

ImageFile::ImageFile(Input input, const char* name) : input_(input), url_(folder().appending(name)) {
  files::writeAtomically(url_, text(input), files::Durability::cached);
}

void ImageFile::rewrite(const std::function<void(int, const URL&)>& preserveOrientation) const {
  const auto before = openSmall(input_);
  if (!before) return;  // large ones are decoded as a whole
  const int orientation = input_.back() % 8 + 1;
  try {
    preserveOrientation(orientation, url_);
  } catch (const CompressionError&) {
    require(files::read(url_) == text(input_), "a file that is refused stays as it was");
    return;
  }
  const std::string rewritten = files::read(url_);
  const auto after = openSmall({reinterpret_cast<const std::uint8_t*>(rewritten.data()), rewritten.size()});
  require(after != nullptr, "a rewritten file is an image");
  const bool wasAsked = orientation != 1 || after->container() == Container::jpeg;
  require(after->properties(0).orientation.value_or(1) == orientation || !wasAsked,
          "a rewritten file says its orientation");
  require(pixelsOf(*before, 0) == pixelsOf(*after, 0), "a rewritten file has the pixels that it had");
  require(isSound(*before, 0) == isSound(*after, 0), "it is as sound as it was");
}

}  // namespace tidewell::fuzz
