// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

class ReportDirectory;

/// One attempt at a candidate and its verdict.
struct CandidateDiagnostic {
  std::string encoder;  ///< label of the step, or "candidate"
  std::string status;   ///< "accepted", "rejected", "error", "unavailable"
  std::string reason;   ///< short code in snake_case
  std::optional<std::int64_t> bytes;
  std::optional<double> score;
  std::optional<std::string> detail;

  bool operator==(const CandidateDiagnostic&) const = default;
};

void to_json(nlohmann::json& object, const CandidateDiagnostic& diagnostic);
/// Throws `nlohmann::json::exception` when a required key is missing or of the wrong type.
void from_json(const nlohmann::json& object, CandidateDiagnostic& diagnostic);

/// What happened to one file: made at its start, filled while candidates are tried, saved once at its end.
/// Used by one thread at a time.
class CompressionTrace {
 public:
  static constexpr std::size_t maximumEvents = 100;
  static constexpr std::size_t maximumDetailCharacters = 1000;

  explicit CompressionTrace(const URL& url, Date startedAt = Date::now());

  const std::string source;
  const Date startedAt;
  std::string outcome = "failed";
  std::optional<std::string> selectedEncoder;
  std::optional<std::string> profile;

  const std::vector<CandidateDiagnostic>& events() const { return events_; }
  /// Drops the record once `maximumEvents` are held; cuts its detail to `maximumDetailCharacters`.
  void append(CandidateDiagnostic diagnostic);

  /// Adds one report. Best effort: never throws.
  void save(ReportDirectory& reports) const noexcept;

 private:
  std::vector<CandidateDiagnostic> events_;
};

}  // namespace tidewell
