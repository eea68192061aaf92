// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// Cores that this process may run on, which in a container is less than what the machine has.
unsigned activeProcessorCount();

/// Bytes of memory that the machine has, not what the kernel left of it for programs: an 8 GiB machine gives
/// 8 GiB. The sum of the blocks of memory that are in use, or, where the kernel does not tell them, what it
/// left (`usable`), rounded up to whole GiB.
std::uint64_t installedMemory(const URL& blocks, std::uint64_t usable);
std::uint64_t installedMemory();  ///< of this machine

}  // namespace tidewell
