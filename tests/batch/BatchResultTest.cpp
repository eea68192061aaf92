// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "CompressionKit/batch/BackgroundBatchResult.h"

namespace tidewell {
namespace {

using Item = BackgroundBatchResult::Item;

TEST(BackgroundBatchResult, CountsAndSums) {
  const BackgroundBatchResult result{
      .sessionID = UUID::random(),
      .finishedAt = {1.5},
      .items = {Item{"/a", "replaced", 1000, 400, {}}, Item{"/b", "converted", 1000, 1200, {}},
                Item{"/c", "skipped", {}, {}, "不支持的文件格式"}, Item{"/d", "failed", 70, {}, "x"},
                Item{"/e", "Replaced", {}, 5, {}}}};
  EXPECT_EQ(std::tuple(result.replacedCount(), result.skippedCount(), result.failedCount()),
            std::tuple(2, 1, 1));
  EXPECT_EQ(result.savedBytes(), 670);
  EXPECT_EQ(BackgroundBatchResult::parse(result.json()), result);
  const auto json = nlohmann::json::parse(result.json());
  EXPECT_EQ(json.at("items")[2].size(), 3U);  // absent values have no key
  EXPECT_EQ(json.at("finishedAt"), 1.5);
}

TEST(BackgroundBatchResult, ReadsWhatOthersWrite) {
  const std::string head = R"({"finishedAt":7,"sessionID":"01234567-89ab-cdef-0123-456789abcdef","items":[)";
  for (const char* good : {R"({"outcome":"failed","path":"\/a","error":null,"new":1}]})", "]}"}) {
    EXPECT_TRUE(BackgroundBatchResult::parse(head + good)) << good;
  }
  for (const char* bad : {R"({"outcome":"failed"}]})", R"({"path":"/a","outcome":3}]})",
                          R"({"path":"/a","outcome":"x","finalBytes":"1"}]})", ""}) {
    EXPECT_FALSE(BackgroundBatchResult::parse(head + bad)) << bad;
  }
  EXPECT_FALSE(BackgroundBatchResult::parse(R"({"finishedAt":7,"items":[]})"));
  BackgroundBatchResult odd;
  odd.items = {Item{"/a/\xC3\x28.jpg", "failed", {}, {}, "\xFF"}};
  EXPECT_EQ(BackgroundBatchResult::parse(odd.json())->items.front().path, "/a/\uFFFD(.jpg");
}

}  // namespace
}  // namespace tidewell
