// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/CommandURL.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Base64.h"

namespace tidewell {
namespace {

/// The value of the first item of this name.
const std::string* value(const std::vector<URL::QueryItem>& items, std::string_view name) {
  const auto found = std::ranges::find(items, name, &URL::QueryItem::first);
  return found != items.end() && found->second ? &*found->second : nullptr;
}

/// Takes the same time wherever the two differ.
bool equal(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

std::vector<URL> filesOfCommand(const URL& url, TokenSource& tokens) {
  if (url.scheme() != "tidewell-background" || url.host() != "compress" || !url.queryItems()) return {};
  const std::string expected = tokens.commandToken();
  const std::string* token = value(*url.queryItems(), "token");
  if (expected.empty() || !token || !equal(*token, expected)) return {};

  const std::string* files = value(*url.queryItems(), "files");
  if (!files) return {};
  const auto text = base64Decoded(*files);
  if (!text) return {};
  const auto list = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (!list.is_array() || !std::ranges::all_of(list, [](const auto& entry) { return entry.is_string(); })) {
    return {};
  }
  std::vector<URL> result;
  for (const auto& entry : list) {
    const auto& path = entry.get_ref<const std::string&>();
    // No file's name holds a NUL, and the kernel would read the path only up to it.
    if (path.starts_with('/') && path.find('\0') == std::string::npos) result.push_back(URL::file(path));
  }
  return result;
}

}  // namespace tidewell
