// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/Original.h"

#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

files::ResourceValues regularFile(const URL& url) {
  const auto values = files::resourceValues(url);
  if (!values.isRegularFile) {  // nor a link to one
    throw CompressionError::fileOperation("请选择普通图片文件");
  }
  return values;
}

/// The file's hash, if it is an image of its kind by its first bytes. Anything else, a film perhaps, is not
/// worth reading whole: its inspection refuses it.
std::optional<std::string> hashOfImage(const URL& url) {
  try {
    const auto kind = ImageKind::from(url);
    const auto container = kind ? ImageSource::containerOf(ImageInput(url)) : std::nullopt;
    if (!container || !kind->accepts(*container)) return std::nullopt;
    return hash(url);
  } catch (const FileError&) {
    return std::nullopt;
  }
}

}  // namespace

Original::Original(const URL& url, const StopToken& stop, const HEICProgram& heicProgram)
    : url_(url), entry_(regularFile(url)), times_(files::times(url)) {
  if (ImageKind::from(url) == ImageKind::heic) {
    heic_.emplace(url, HEICDecoding::Purpose::convert, stop, heicProgram);
    inspection_.facts = heic_->facts();
    hash_ = heic_->hash();
  } else {
    inspect(stop);
  }
}

void Original::inspect(const StopToken& stop) {
  auto hashed = hashOfImage(url_);
  inspection_ = ImageFacts::inspection(url_, ImageFacts::Views::wanted, stop);
  if (!hashed) {  // and an image all the same: of another file, perhaps
    hashed = tidewell::hash(url_);
    if (!isUntouched()) throw CompressionError::changedDuringCompression();
  }
  hash_ = *std::move(hashed);
}

views::Pair Original::takeViews() {
  return std::exchange(inspection_.views, std::nullopt).value();
}

std::shared_ptr<GIFAnimation> Original::takeAnimation() {
  return std::exchange(inspection_.animation, nullptr);
}

bool Original::isUntouched() const noexcept {
  try {
    return files::resourceValues(url_) == entry_;
  } catch (...) {
    return false;
  }
}

bool Original::hasChanged() const {
  return tidewell::hash(url_) != hash_;
}

}  // namespace tidewell
