// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/GIFDecoder.h"
#include "CompressionKit/engine/CompressionRun.h"
#include "CompressionKit/engine/FormatPolicy.h"
#include "CompressionKit/engine/GIFQuality.h"
#include "CompressionKit/engine/Metric.h"
#include "CompressionKit/image/ColorAgreement.h"
#include "CompressionKit/image/Metadata.h"
#include "CompressionKit/platform/Digest.h"

namespace tidewell {
namespace {

/// Judges one output; keeps what the checks share.
class Validation {
 public:
  Validation(CompressionRun& run, const URL& output, const std::string& encoder, const Proof& proof)
      : run_(run), output_(output), encoder_(encoder), proof_(proof), bytes_(fileSize(output)) {}

  std::optional<Candidate> candidate() {
    if (bytes_ < 1) return rejected("empty_output", std::nullopt);
    if (!policy_.judgesLargerOutputs && bytes_ >= run_.original.bytes())
      return rejected("not_smaller", bytes_);
    // Before anything else reads it, so that the bytes with this hash are the ones that are judged.
    const std::string outputHash = hash(output_);
    const ImageFacts::Inspection found = inspected();
    if (policy_.saysItsColors &&
        !colorsAgree(run_.original.properties(), found.properties, mayBeConverted())) {
      found.prove();
      record("rejected", "metadata_mismatch", bytes_, std::nullopt, profiles(found.facts));
      return std::nullopt;
    }
    const bool isSame = !isLossless() || showsOriginal(found);
    const auto* same = std::get_if<SamePixelsAs>(&proof_);
    const bool isCopy = same && samePixels(same->candidate.url, found);  // its alpha has been judged, then
    const bool keepsAlpha = !isSame || isCopy || alphaSurvives(found);
    found.prove();  // what is broken counts first, whatever it has been compared with
    if (!isSame) return rejected("pixels_changed", bytes_);
    if (!keepsAlpha) return rejected("alpha_mismatch", bytes_);

    std::optional<double> score;
    if (same) {
      if (!isCopy) return rejected("pixels_changed", bytes_);
      score = same->candidate.score;
    } else if (const auto* least = std::get_if<ScoreAtLeast>(&proof_)) {
      const double minimum = least->minimum.value_or(run_.engine.thresholds().*policy_.threshold);
      if (policy_.isAnimation) {
        score = gifQualityScore(run_.originalPixels(), {output_, found.animation}, run_.tools(),
                                run_.workingDirectory, minimum);
        if (!score) return rejected("gif_frame_quality_or_alpha", bytes_);
      } else {
        score = measured(found);
        if (*score < minimum) return rejected("quality_below_threshold", bytes_, score);
      }
    }
    record("accepted", "validated", bytes_, score);
    return Candidate{output_, encoder_, score, bytes_, outputHash, mayBeConverted(), isLossless()};
  }

 private:
  bool isLossless() const { return std::holds_alternative<SamePixels>(proof_); }
  bool mayBeConverted() const { return policy_.mayBeConvertedToSRGB && !isLossless(); }

  ImageFacts::Inspection inspected() const {
    using Views = ImageFacts::Views;
    const bool isMeasured = std::holds_alternative<ScoreAtLeast>(proof_);
    auto found =
        ImageFacts::inspection(output_, isMeasured ? Views::wanted : Views::unwanted, stop_, policy_.proof);
    if (!run_.facts().compatible(found.facts, mayBeConverted())) {
      found.prove();
      record("rejected", "metadata_mismatch", bytes_, std::nullopt, profiles(found.facts));
      throw CompressionError::fileOperation("压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致");
    }
    return found;
  }

  std::string profiles(const ImageFacts& facts) const {
    return run_.facts().profileName.value_or("none") + " -> " + facts.profileName.value_or("none");
  }

  /// Animations are gone on with from where the inspections of both files ended.
  bool showsOriginal(const ImageFacts::Inspection& found) {
    if (!policy_.isAnimation) return samePixels(run_.url(), found);
    return ImageFacts::gifFramesEqual({run_.url(), run_.original.takeAnimation()}, {output_, found.animation},
                                      stop_);
  }

  bool samePixels(const URL& expected, const ImageFacts::Inspection& found) const {
    return policy_.samePixels && policy_.samePixels(expected, output_, found, stop_);
  }

  /// Where all pixels are the same, so is their alpha.
  bool alphaSurvives(const ImageFacts::Inspection& found) const {
    if (isLossless() || !policy_.alphaSurvives || !(run_.facts().hasAlpha || found.facts.hasAlpha))
      return true;
    return policy_.alphaSurvives(run_.url(), output_, found, stop_);
  }

  /// Both have views or neither: they are of one size.
  double measured(const ImageFacts::Inspection& found) {
    if (!found.views) return QualityAssessment::measure(run_.url(), output_, run_.tools());
    return QualityAssessment::score(run_.originalViews(), *found.views, run_.workingDirectory, run_.tools());
  }

  std::optional<Candidate> rejected(const char* reason, std::optional<std::int64_t> bytes,
                                    std::optional<double> score = std::nullopt) const {
    record("rejected", reason, bytes, score);
    return std::nullopt;
  }

  void record(const char* status, const char* reason, std::optional<std::int64_t> bytes,
              std::optional<double> score, std::optional<std::string> detail = std::nullopt) const {
    run_.trace.append({encoder_, status, reason, bytes, score, std::move(detail)});
  }

  CompressionRun& run_;
  const URL& output_;
  const std::string& encoder_;
  const Proof& proof_;
  const std::int64_t bytes_;
  const FormatPolicy& policy_ = formatPolicy(run_.facts().kind);
  const StopToken stop_ = run_.tools().stopToken();
};

}  // namespace

void CompressionRun::prepare(const URL& output, const Proof& proof) const {
  const FormatPolicy& policy = formatPolicy(facts().kind);
  if (options.stripMetadata) metadata::strip(output, tools().stopToken());
  const bool mayLackOrientation = options.stripMetadata || std::holds_alternative<ScoreAtLeast>(proof);
  if (policy.preserveOrientation && mayLackOrientation) {
    policy.preserveOrientation(static_cast<int>(facts().orientation), output, tools().stopToken());
  }
  if (options.keepMetadata) metadata::carry(url(), output, tools().stopToken());
}

std::optional<Candidate> CompressionRun::judge(const URL& output, const std::string& encoder,
                                               const Proof& proof) {
  auto candidate = Validation(*this, output, encoder, proof).candidate();
  if (candidate && candidate->bytes < original.bytes()) candidates.push_back(*candidate);
  return candidate;
}

std::optional<Candidate> CompressionRun::consider(const URL& output, const std::string& encoder,
                                                  const Proof& proof) {
  prepare(output, proof);
  return judge(output, encoder, proof);
}

}  // namespace tidewell
