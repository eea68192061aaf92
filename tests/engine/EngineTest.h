// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engine/FakeTools.h"
#include "support/Failure.h"

namespace tidewell::test {

/// The report of the latest run beside a store.
inline nlohmann::json latestReport(const UndoStore& store) {
  const auto reports = files::contentsOfDirectory(
      store.root().deletingLastPathComponent().appending("CompressionDiagnostics"));
  const auto latest =
      std::ranges::max_element(reports, {}, [](const URL& url) { return url.lastPathComponent(); });
  return nlohmann::json::parse(files::read(*latest));
}

/// A picture that the test writes, a store, and tools whose answers it prepares.
class EngineTest : public testing::Test {
 protected:
  explicit EngineTest(const std::string& name) : photo(folder.write("pictures/" + name, "")) {}

  CompressionResult compress(const URL& url) const {
    return CompressionEngine(ToolRunner(tools.directory()), undo, {}, decoder)
        .compress(url, session, options);
  }
  /// The text of the error that a run ends with. Nothing may be left of it.
  std::string failure(const URL& url) const {
    const auto names = contents();
    std::string text = textOf([&] { compress(url); });
    EXPECT_EQ(contents(), names);
    EXPECT_FALSE(files::exists(undo.root().appending(session.string())));
    EXPECT_EQ(latestReport(undo).at("outcome"), "failed");
    return text;
  }
  /// The names in the folder of the picture.
  std::vector<std::string> contents() const {
    auto names = files::namesInDirectory(pictures);
    std::ranges::sort(names);
    return names;
  }
  const TemporaryFolder folder;
  const FakeTools tools;
  const URL pictures = folder / "pictures";
  const URL photo;
  const UndoStore undo{folder / "data/Undo"};
  const UUID session = UUID::random();
  std::string before;  ///< the picture's bytes
  CompressionOptions options;
  HEICProgram decoder;  ///< the real one, unless told otherwise
};

}  // namespace tidewell::test
