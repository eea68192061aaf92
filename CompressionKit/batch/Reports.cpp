// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/Reports.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <functional>
#include <nlohmann/json.hpp>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"

namespace tidewell {
namespace {

/// Far above what a trace writes.
constexpr std::size_t maximumReportBytes = std::size_t{4} << 20;

template <typename Value>
std::optional<Value> optionalValue(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? std::nullopt : std::optional(found->get<Value>());
}

}  // namespace

std::optional<Report> Report::parse(std::string_view text) {
  try {
    const auto object = nlohmann::json::parse(text);
    Report report;
    report.source = object.at("source").get<std::string>();
    report.outcome = object.at("outcome").get<std::string>();
    report.selectedEncoder = optionalValue<std::string>(object, "selectedEncoder");
    report.profile = optionalValue<std::string>(object, "profile");
    report.attempts = object.at("attempts").get<std::vector<CandidateDiagnostic>>();
    return report;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// It begins with milliseconds since 1970.
std::optional<Date> Report::startOf(std::string_view name) {
  if (!name.ends_with(".json")) return std::nullopt;
  double milliseconds = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), milliseconds);
  if (error != std::errc() || end == name.data() + name.size() || *end != '-') return std::nullopt;
  return Date::since1970(milliseconds / 1000);
}

std::optional<Report> Report::read(const URL& file) {
  const auto start = startOf(file.lastPathComponent());
  auto report = start ? parse(files::read(file, maximumReportBytes)) : std::nullopt;
  if (report) report->startedAt = *start;
  return report;
}

std::optional<Report> newestReport(const URL& directory, const std::string& source, Date before) {
  constexpr double rounding = 0.0005;  // of the names
  std::vector<std::pair<Date, std::string>> names;
  try {
    for (auto& name : files::namesInDirectory(directory)) {
      const auto start = Report::startOf(name);
      if (start && *start <= before.adding(rounding)) names.emplace_back(*start, std::move(name));
    }
  } catch (const FileError& error) {
    if (error.code() != ENOENT) throw;
  }
  std::ranges::sort(names, std::greater());
  const std::string repaired = repairedUTF8(source);
  for (const auto& [start, name] : names) {
    try {
      auto report = Report::read(directory.appending(name));
      if (report && report->source == repaired) return report;
    } catch (const FileError&) {
    }
  }
  return std::nullopt;
}

}  // namespace tidewell
