// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <algorithm>
#include <string>

#include "TidewellBackground/resident/CommandToken.h"
#include "TidewellBackground/resident/CommandURL.h"
#include "support/Target.h"

using namespace tidewell;

namespace {

struct Token final : TokenSource {
  explicit Token(std::string value) : token(std::move(value)) {}
  std::string commandToken() override { return token; }
  std::string token;
};

}  // namespace

/// The content of a token file, a NUL, and the text of a URL.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::text({data, size});
  const std::size_t end = std::min(input.find('\0'), input.size());
  Token token(CommandToken::tokenIn(input.substr(0, end)));
  fuzz::require(token.token.find('\n') == std::string::npos, "a token is of one line");

  const auto url = URL::parse(input.substr(std::min(end + 1, input.size())));
  if (!url) return 0;
  if (url->isFileURL()) {
    fuzz::require(url->path().find('\0') == std::string::npos, "no path holds a NUL");
    url->standardized();
  }
  const auto files = filesOfCommand(*url, token);
  fuzz::require(files.empty() || !token.token.empty(), "no command without a token");
  for (const URL& file : files) {
    fuzz::require(
        file.isFileURL() && file.path().starts_with('/') && file.path().find('\0') == std::string::npos,
        "a command lists absolute paths");
  }
  Token other(token.token + "x");
  fuzz::require(filesOfCommand(*url, other).empty() || files.empty(), "one token fits, not two");
  return 0;
}
