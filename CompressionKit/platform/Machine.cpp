// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Machine.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <thread>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"

namespace tidewell {
namespace {

/// A file of sysfs without the line break at its end; empty when it cannot be read.
std::string attribute(const URL& url) {
  try {
    std::string text = files::read(url, 64);
    if (text.ends_with('\n')) text.pop_back();
    return text;
  } catch (const FileError&) {
    return {};
  }
}

/// "memory12", not "power".
bool isBlock(std::string_view name) {
  constexpr std::string_view prefix = "memory";
  return name.starts_with(prefix) && name.find_first_not_of("0123456789", prefix.size()) == name.npos &&
         name.size() > prefix.size();
}

/// 0 when the kernel does not tell.
std::uint64_t onlineMemory(const URL& blocks) {
  const std::string size = attribute(blocks.appending("block_size_bytes"));
  std::uint64_t blockBytes = 0;
  std::from_chars(size.data(), size.data() + size.size(), blockBytes, 16);
  if (blockBytes == 0) return 0;
  std::uint64_t total = 0;
  for (const auto& name : files::namesInDirectory(blocks)) {
    if (isBlock(name) && attribute(blocks.appending(name).appending("state")) == "online")
      total += blockBytes;
  }
  return total;
}

}  // namespace

unsigned activeProcessorCount() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) return static_cast<unsigned>(CPU_COUNT(&set));
  return std::max(1U, std::thread::hardware_concurrency());  // more cores than the set can name
}

std::uint64_t installedMemory(const URL& blocks, std::uint64_t usable) {
  constexpr std::uint64_t gibibyte = std::uint64_t{1} << 30;
  std::uint64_t online = 0;
  try {
    online = onlineMemory(blocks);
  } catch (const FileError&) {
  }
  // Blocks that hold less than what is usable cannot be all: a container may show only a part of them.
  if (online != 0 && online >= usable) return online;
  return usable / gibibyte * gibibyte + (usable % gibibyte == 0 ? 0 : gibibyte);
}

std::uint64_t installedMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGE_SIZE);
  const std::uint64_t usable = pages > 0 && pageSize > 0
                                   ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize)
                                   : 0;
  return installedMemory(URL::file("/sys/devices/system/memory"), usable);
}

}  // namespace tidewell
