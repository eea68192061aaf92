// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Attempts.h"

#include <algorithm>

#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/engine/CompressionResult.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Texts.h"

namespace tidewell {
namespace {

struct Words {
  std::string_view code;
  const char* text;
};

constexpr Words reasons[] = {
    {"not_smaller", N_("not smaller than the original")},
    {"quality_below_threshold", N_("its loss could be seen: the score is too low")},
    {"metadata_mismatch", N_("size, orientation, frames or colours would have changed")},
    {"pixels_changed", N_("pixels changed where none may")},
    {"alpha_mismatch", N_("transparency changed")},
    {"gif_frame_quality_or_alpha", N_("the loss or the transparency of a frame could be seen")},
    {"empty_output", N_("the encoder wrote nothing")},
    {"component_error", N_("the tool failed")},
    {"missing_component", N_("the tool is not installed")},
    {"below_minimum", N_("too little to gain")},
    {"embedded_media", N_("holds more than a picture (a video, say), which would be lost")},
};

constexpr Words outcomes[] = {
    {"replaced", N_("replaced by the smallest that passed")},
    {"converted", N_("the smallest that passed stands beside it")},
    {"skipped", N_("left as it was: nothing smaller passed")},
    {"failed", N_("left as it was: it failed")},
};

/// Where files were left for something else than their results.
constexpr Words skips[] = {
    {"below_minimum", N_("left as it was: too little to gain")},
    {"embedded_media", N_("left as it was: it holds more than a picture (a video, say)")},
};

template <std::size_t count>
std::string worded(const Words (&table)[count], const std::string& code) {
  for (const auto& [known, text] : table) {
    if (known == code) return _(text);
  }
  return printable(code);
}

}  // namespace

std::string outcomeText(const Report& report) {
  if (report.outcome == "skipped") {
    for (const auto& [reason, text] : skips) {
      if (std::ranges::find(report.attempts, reason, &CandidateDiagnostic::reason) != report.attempts.end())
        return _(text);
    }
  }
  return worded(outcomes, report.outcome);
}

std::string encoderText(const std::string& encoder) {
  return encoder == strippedOnly ? _("only its metadata removed") : printable(encoder);
}

std::string verdictText(const Report& report, const CandidateDiagnostic& attempt) {
  if (attempt.status == "accepted") {
    if (!report.selectedEncoder) return _("passed");
    return report.selectedEncoder == attempt.encoder ? _("taken") : _("passed, another was smaller");
  }
  const std::string reason = worded(reasons, attempt.reason);
  return attempt.detail ? reason + " (" + printable(*attempt.detail) + ")" : reason;
}

std::string noReportText(std::string_view path) {
  return filled(_("No report on “{1}” is left; those on the last {2} files are kept"),
                {printable(path), std::to_string(ReportDirectory::reportsKept)});
}

}  // namespace tidewell
