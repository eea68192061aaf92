// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>
#include <vector>

namespace tidewell {

/// The names of `metadata::Entry` in the user's language: "date, place", or "nothing".
std::string metadataText(const std::vector<std::string>& names);

}  // namespace tidewell
