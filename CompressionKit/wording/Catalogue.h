// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>
#include <unordered_map>

#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// A compiled catalogue of texts (".mo"), for systems where gettext takes none: a bare one has no locale but
/// C.UTF-8, and newer C libraries translate nothing there. For languages with one plural form.
class Catalogue {
 public:
  /// Nothing for a file that is none, or cannot be read.
  static std::optional<Catalogue> read(const URL& file);

  /// Null where it has none. Lives as long as this.
  const char* text(const std::string& english) const;

 private:
  std::unordered_map<std::string, std::string> texts_;
};

}  // namespace tidewell
