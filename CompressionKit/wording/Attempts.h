// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>
#include <string_view>

#include "CompressionKit/batch/Reports.h"

namespace tidewell {

// Reports as people read them.

/// How the file ended: "replaced by the smallest that passed".
std::string outcomeText(const Report& report);
/// The step that made an attempt: a tool's name and settings, "only its metadata removed".
std::string encoderText(const std::string& encoder);
/// What was said of one attempt of the report: "taken", "not smaller than the original".
std::string verdictText(const Report& report, const CandidateDiagnostic& attempt);
/// That no report on the file at `path` is left.
std::string noReportText(std::string_view path);

}  // namespace tidewell
