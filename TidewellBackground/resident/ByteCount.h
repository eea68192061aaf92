// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdint>
#include <string>

namespace tidewell {

/// A file size as Chinese users see it on their desktop: decimal units (1 KB is 1000 bytes), whole bytes and
/// kilobytes, one fraction digit for megabytes and two above, trailing zeros left out, and no number for 0.
/// `bytes` is not negative. Rounds half to even; a size that rounds up to 1000 of a unit is 1 of the next.
std::string byteCountText(std::int64_t bytes);

}  // namespace tidewell
