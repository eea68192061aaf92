// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/batch/BackgroundBatchResult.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "CompressionKit/platform/Text.h"

namespace tidewell {
namespace {

using nlohmann::json;

std::int64_t count(const std::vector<BackgroundBatchResult::Item>& items, auto... outcomes) {
  return std::ranges::count_if(items, [&](const auto& item) { return ((item.outcome == outcomes) || ...); });
}

template <typename Value>
std::optional<Value> optional(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  return found->get<Value>();
}

}  // namespace

std::int64_t BackgroundBatchResult::replacedCount() const {
  return count(items, "replaced", "converted");
}

std::int64_t BackgroundBatchResult::failedCount() const {
  return count(items, "failed");
}

std::int64_t BackgroundBatchResult::skippedCount() const {
  return count(items, "skipped");
}

std::int64_t BackgroundBatchResult::savedBytes() const {
  std::int64_t saved = 0;
  for (const auto& item : items) {
    saved += std::max<std::int64_t>(item.originalBytes.value_or(0) - item.finalBytes.value_or(0), 0);
  }
  return saved;
}

std::string BackgroundBatchResult::json() const {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& item : items) {
    nlohmann::json object = {{"path", repairedUTF8(item.path)}, {"outcome", item.outcome}};
    if (item.originalBytes) object["originalBytes"] = *item.originalBytes;
    if (item.finalBytes) object["finalBytes"] = *item.finalBytes;
    if (item.error) object["error"] = repairedUTF8(*item.error);
    list.push_back(std::move(object));
  }
  const nlohmann::json result = {{"sessionID", sessionID.string()},
                                 {"finishedAt", finishedAt.sinceReferenceDate},
                                 {"items", std::move(list)}};
  return result.dump();
}

std::optional<BackgroundBatchResult> BackgroundBatchResult::parse(std::string_view text) {
  try {
    const auto object = nlohmann::json::parse(text);
    const auto session = UUID::parse(object.at("sessionID").get_ref<const std::string&>());
    if (!session) return std::nullopt;
    BackgroundBatchResult result{
        .sessionID = *session, .finishedAt = {object.at("finishedAt").get<double>()}, .items = {}};
    const auto& list = object.at("items");
    if (!list.is_array()) return std::nullopt;
    for (const auto& item : list) {
      result.items.push_back({.path = item.at("path").get<std::string>(),
                              .outcome = item.at("outcome").get<std::string>(),
                              .originalBytes = optional<std::int64_t>(item, "originalBytes"),
                              .finalBytes = optional<std::int64_t>(item, "finalBytes"),
                              .error = optional<std::string>(item, "error")});
    }
    return result;
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace tidewell
