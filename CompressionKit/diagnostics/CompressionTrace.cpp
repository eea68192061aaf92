// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/diagnostics/CompressionTrace.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "CompressionKit/diagnostics/ReportDirectory.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

using nlohmann::json;

template <typename Value>
void putIfPresent(json& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = *value;
}

std::string fileName(const Date& startedAt) {
  char milliseconds[64];
  std::snprintf(milliseconds, sizeof milliseconds, "%.0f", startedAt.since1970() * 1000.0);
  return std::string(milliseconds) + "-" + UUID::random().string() + ".json";
}

}  // namespace

void to_json(json& object, const CandidateDiagnostic& diagnostic) {
  object = {{"encoder", diagnostic.encoder}, {"status", diagnostic.status}, {"reason", diagnostic.reason}};
  putIfPresent(object, "bytes", diagnostic.bytes);
  putIfPresent(object, "score", diagnostic.score);
  if (diagnostic.detail) object["detail"] = repairedUTF8(*diagnostic.detail);
}

void from_json(const json& object, CandidateDiagnostic& diagnostic) {
  const auto optional = [&]<typename Value>(const char* key, std::optional<Value>& value) {
    const auto found = object.find(key);
    value = found == object.end() || found->is_null() ? std::nullopt : std::optional(found->get<Value>());
  };
  object.at("encoder").get_to(diagnostic.encoder);
  object.at("status").get_to(diagnostic.status);
  object.at("reason").get_to(diagnostic.reason);
  optional("bytes", diagnostic.bytes);
  optional("score", diagnostic.score);
  optional("detail", diagnostic.detail);
}

CompressionTrace::CompressionTrace(const URL& url, Date started) : source(url.path()), startedAt(started) {}

void CompressionTrace::append(CandidateDiagnostic diagnostic) {
  if (events_.size() >= maximumEvents) return;
  if (diagnostic.detail) diagnostic.detail = characterPrefix(*diagnostic.detail, maximumDetailCharacters);
  events_.push_back(std::move(diagnostic));
}

void CompressionTrace::save(ReportDirectory& reports) const noexcept {
  try {
    json report = {{"source", repairedUTF8(source)},
                   {"startedAt", startedAt.iso8601()},
                   {"outcome", outcome},
                   {"attempts", events_}};
    putIfPresent(report, "selectedEncoder", selectedEncoder);
    if (profile) report["profile"] = repairedUTF8(*profile);
    reports.add(fileName(startedAt), report.dump(2));
  } catch (...) {
  }
}

}  // namespace tidewell
