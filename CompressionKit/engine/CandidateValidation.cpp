#include "CompressionKit/engine/CandidateValidation.h"

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/engine/GIFQuality.h"
#include "CompressionKit/image/ColorAgreement.h"
#include "CompressionKit/image/QualityAssessment.h"
#include "CompressionKit/platform/Digest.h"

namespace tidewell {
namespace {

/// Judges one output; keeps what the checks share.
class Validation {
 public:
  Validation(const CompressionRun& run, const URL& output, const std::string& encoder,
             const ValidationRules& rules)
      : run_(run), output_(output), encoder_(encoder), rules_(rules), bytes_(fileSize(output)) {}

  std::optional<Candidate> candidate() {
    if (bytes_ < 1) return rejected("empty_output", std::nullopt);
    if (!rules_.acceptLarger && bytes_ >= fileSize(run_.url)) return rejected("not_smaller", bytes_);
    const ImageFacts facts = inspected();
    if (!colorsSurvive()) {
      record("rejected", "metadata_mismatch", bytes_, std::nullopt, profiles(facts));
      return std::nullopt;
    }
    if (!rules_.isLossy && !samePixels(run_.url)) return rejected("pixels_changed", bytes_);
    if (!alphaSurvives(facts)) return rejected("alpha_mismatch", bytes_);

    std::optional<double> score;
    if (rules_.losslessCandidate) {
      if (!samePixels(rules_.losslessCandidate->url)) {
        return rejected("pixels_changed", bytes_);
      }
      score = rules_.losslessCandidate->score;
    } else if (rules_.isLossy && run_.original.kind == ImageKind::gif) {
      score = gifQualityScore(run_, output_);
      if (!score) return rejected("gif_frame_quality_or_alpha", bytes_);
    } else if (rules_.isLossy) {
      score = QualityAssessment::score(run_.url, output_, run_.original, run_.tools());
      if (*score < minimumScore()) return rejected("quality_below_threshold", bytes_, score);
    }
    record("accepted", "validated", bytes_, score);
    return Candidate{output_, encoder_, score, bytes_, rules_.allowsSRGBConversion};
  }

 private:
  ImageFacts inspected() const {
    ImageFacts facts = ImageFacts::inspect(output_, stop_);
    if (!run_.original.compatible(facts, rules_.allowsSRGBConversion)) {
      record("rejected", "metadata_mismatch", bytes_, std::nullopt, profiles(facts));
      throw CompressionError::fileOperation("压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致");
    }
    return facts;
  }

  std::string profiles(const ImageFacts& facts) const {
    return run_.original.profileName.value_or("none") + " -> " + facts.profileName.value_or("none");
  }

  /// A GIF says nothing of its colours.
  bool colorsSurvive() const {
    return run_.original.kind == ImageKind::gif ||
           colorsAgree(run_.url, output_, rules_.allowsSRGBConversion, stop_);
  }

  /// For PNG at the depth of the files, which is more than what is shown.
  bool samePixels(const URL& expected) const {
    if (run_.original.kind == ImageKind::gif) return ImageFacts::gifFramesEqual(expected, output_, stop_);
    if (run_.original.kind == ImageKind::png) return ImageFacts::samplesEqual(expected, output_, stop_);
    return true;
  }

  bool alphaSurvives(const ImageFacts& facts) const {
    if (run_.original.kind != ImageKind::png || !(run_.original.hasAlpha || facts.hasAlpha)) return true;
    return rules_.isLossy ? ImageFacts::quantizedAlphaWithin(run_.url, output_, stop_)
                          : ImageFacts::alphaDeviationWithin(run_.url, output_, 0, stop_);
  }

  double minimumScore() const {
    const auto& thresholds = run_.engine.thresholds();
    return rules_.minimumScore.value_or(run_.original.kind == ImageKind::png ? thresholds.pngQuality
                                                                             : thresholds.quality);
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

  const CompressionRun& run_;
  const URL& output_;
  const std::string& encoder_;
  const ValidationRules& rules_;
  const std::int64_t bytes_;
  const StopToken stop_ = run_.tools().stopToken();
};

}  // namespace

std::optional<Candidate> validated(const CompressionRun& run, const URL& output, const std::string& encoder,
                                   const ValidationRules& rules) {
  return Validation(run, output, encoder, rules).candidate();
}

}  // namespace tidewell
