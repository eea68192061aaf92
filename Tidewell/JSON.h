// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Base64.h"
#include "CompressionKit/platform/Text.h"

namespace tidewell {

/// The lines that scripts read; keys stay in the order in which they are written.
using OrderedJSON = nlohmann::ordered_json;

/// The path under `key`; one that is not UTF-8 is repaired there, and its bytes stand under `key`_b64.
inline void addPath(OrderedJSON& object, const std::string& key, std::string_view path) {
  object[key] = repairedUTF8(path);
  if (!isValidUTF8(path)) object[key + "_b64"] = base64Encoded(path);
}

/// One line of valid UTF-8.
inline std::string dumped(const OrderedJSON& object) {
  return object.dump(-1, ' ', false, OrderedJSON::error_handler_t::replace);
}

}  // namespace tidewell
