// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>
#include <string_view>

#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/URL.h"
#include "TidewellBackground/resident/Desktop.h"

namespace tidewell {

/// The command token of this user's installation: key "TidewellCommandToken" in the group "[Tidewell]" of
/// the settings file, a key file of the desktop's usual form (without its escapes). A file that others can
/// write, that belongs to someone else or that is no regular file counts as missing.
class CommandToken final : public TokenSource {
 public:
  /// In the text of such a file; empty when it has none.
  static std::string tokenIn(std::string_view text);

  explicit CommandToken(URL file = locations::settingsFile()) : file_(std::move(file)) {}
  std::string commandToken() override;

 private:
  URL file_;
};

}  // namespace tidewell
