// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <span>

namespace tidewell::fuzz {

/// Gives every whole chunk of a PNG the sum of its data; other bytes stay as they are.
void correctPNGSums(std::span<std::uint8_t> bytes);

}  // namespace tidewell::fuzz
