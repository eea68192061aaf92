// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/KnownFiles.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "CompressionKit/codecs/ImageSource.h"
#include "CompressionKit/engine/HEICConversion.h"
#include "CompressionKit/image/ImageKind.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// What was made of a HEIC file may have been stripped since, and compressed again when that was asked for.
constexpr int maximumGenerations = 8;

/// All besides the file itself that decides whether something smaller is found.
std::string textOf(const KnownFiles::Conditions& conditions) {
  if (conditions.tools.empty()) return {};
  const auto& floors = conditions.floors;
  return conditions.tools + "; floors " +
         nlohmann::json{floors.quality, floors.pngQuality, floors.gifQuality}.dump() +
         (conditions.keepMetadata ? "; metadata kept" : "") +
         (conditions.stripMetadata ? "; metadata stripped" : "");
}

}  // namespace

KnownFiles::KnownFiles(OutputMemory& memory, const Conditions& conditions, StopToken stop)
    : memory_(memory), conditions_(textOf(conditions)), stop_(std::move(stop)) {}

std::optional<KnownFiles::Known> KnownFiles::find(const URL& url, bool conversions) const {
  stop_.throwIfStopped();
  try {
    // What is no image, a film perhaps, is not worth reading whole.
    const auto kind = ImageKind::from(url);
    if (!kind || !files::resourceValues(url).isRegularFile) return std::nullopt;
    const auto container = ImageSource::containerOf(ImageInput(url));
    if (!container || !kind->accepts(*container)) return std::nullopt;
    std::string hashed = hash(url);
    if (const auto output = memory_.output(hashed)) return Known{std::move(hashed), output->score};
    if (!conditions_.empty() && memory_.knowsNothingSmaller(hashed, conditions_)) {
      return Known{std::move(hashed), std::nullopt};
    }
    if (kind != ImageKind::heic || !conversions) return std::nullopt;
    auto conversion = memory_.madeFrom(hashed);
    for (int made = 0; conversion && made < maximumGenerations; ++made) {
      if (hasConversionBeside(url, *conversion)) return Known{std::move(hashed), conversion->score};
      conversion = memory_.madeFrom(conversion->hash);
    }
  } catch (const FileError&) {  // the engine says what is wrong with it
  }
  return std::nullopt;
}

/// The file that was made of this one stands where the engine puts it: a second one would be the same.
bool KnownFiles::hasConversionBeside(const URL& url, const OutputMemory::Output& conversion) const {
  for (int attempt = 0; attempt < maximumConversionNames; ++attempt) {
    const URL candidate = conversionURL(url, attempt);
    if (!files::exists(candidate)) {
      if (attempt > 0) return false;
    } else if (fileSize(candidate) == conversion.bytes && hash(candidate) == conversion.hash) {
      return true;
    }
  }
  return false;
}

void KnownFiles::rememberNothingSmaller(const std::string& hash, std::int64_t bytes) const {
  if (!conditions_.empty()) memory_.rememberNothingSmaller(hash, bytes, conditions_);
}

}  // namespace tidewell
