// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/CompressionRun.h"

#include <algorithm>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {

const Candidate* CompressionRun::smallest() const {
  const auto found = std::ranges::min_element(candidates, {}, &Candidate::bytes);
  return found == candidates.end() ? nullptr : &*found;
}

URL CompressionRun::originalPixels() const {
  const Candidate* found = nullptr;
  for (const Candidate& candidate : candidates) {
    if (candidate.isLossless && (!found || candidate.bytes < found->bytes)) found = &candidate;
  }
  return found ? found->url : url();
}

const Candidate* CompressionRun::choice() const {
  const Candidate* found = smallest();
  if (!found && lastError) std::rethrow_exception(lastError);
  return found;
}

CompressionResult CompressionRun::passedOver(PassedOver reason) const {
  CompressionResult result;
  result.url = original.url();
  result.originalBytes = result.finalBytes = original.bytes();
  result.passedOver = reason;
  if (original.isUntouched()) result.originalHash = original.hash();  // else who knows what the tools saw
  return result;
}

bool CompressionRun::strip() {
  if (!options.stripMetadata) return true;
  return attempt([&] {
    const URL output = workingFile("stripped." + url().pathExtension());
    files::writeAtomically(output, files::read(url()), files::Durability::cached);
    prepare(output, SamePixels{});
    if (fileSize(output) >= original.bytes()) return;  // it says nothing that could go
    stripped = judge(output, strippedOnly, SamePixels{});
    if (!stripped) throw CompressionError::validationFailed();
  });
}

const QualityAssessment::ViewFiles& CompressionRun::originalViews() {
  if (!viewFiles) viewFiles = QualityAssessment::writeViews(original.takeViews(), workingDirectory, "0");
  return *viewFiles;
}

}  // namespace tidewell
