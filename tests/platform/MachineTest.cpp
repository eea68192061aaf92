// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Machine.h"

#include <gtest/gtest.h>

#include <string>

#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

TEST(Machine, KnowsWhatIsInstalledNotWhatTheKernelLeft) {
  constexpr std::uint64_t mebibyte = 1 << 20, gibibyte = mebibyte << 10;
  const test::TemporaryFolder folder;
  const auto tell = [&](const std::string& name, const std::string& text) {
    folder.write(name, text + "\n");
  };
  tell("empty/power/control", "auto");
  tell("no size/memory0/state", "online");
  tell("odd/block_size_bytes", "many");
  tell("odd/memory0/state", "online");
  tell("blocks/block_size_bytes", "40000000");  // hexadecimal: 1 GiB
  for (int i = 0; i < 10; ++i) {
    tell("blocks/memory" + std::to_string(i) + "/state", i < 8 ? "online" : "offline");
  }
  tell("blocks/memory/state", "online");
  tell("blocks/memory1x/state", "online");
  const struct {
    const char* blocks;
    std::uint64_t usable;
    std::uint64_t installed;
  } cases[] = {{"blocks", 7800 * mebibyte, 8 * gibibyte},
               {"blocks", 0, 8 * gibibyte},
               {"blocks", 9 * gibibyte + 1, 10 * gibibyte},
               {"none", 7800 * mebibyte, 8 * gibibyte},
               {"none", 8 * gibibyte, 8 * gibibyte},
               {"none", 8 * gibibyte + 1, 9 * gibibyte},
               {"none", 1, gibibyte},
               {"none", 0, 0},
               {"empty", 1, gibibyte},
               {"no size", 1, gibibyte},
               {"odd", 3 * gibibyte, 3 * gibibyte}};
  for (const auto& c : cases) {
    EXPECT_EQ(installedMemory(folder / c.blocks, c.usable), c.installed) << c.blocks << " " << c.usable;
  }
  EXPECT_GE(installedMemory(), gibibyte / 2);
  EXPECT_GE(activeProcessorCount(), 1U);
}

}  // namespace
}  // namespace tidewell
