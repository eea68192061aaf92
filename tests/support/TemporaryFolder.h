// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell::test {

/// A fresh folder that disappears at the end of the scope.
class TemporaryFolder {
 public:
  TemporaryFolder() : tree_(make()) {}

  const URL& url() const { return tree_.url(); }
  URL operator/(std::string_view name) const { return url().appending(name); }
  /// Writes a file below the folder.
  URL write(std::string_view name, std::string_view data) const {
    const URL file = url().appending(name);
    files::createDirectories(file.deletingLastPathComponent());
    files::writeAtomically(file, data, files::Durability::cached);
    return file;
  }

 private:
  static URL make() {
    std::string pattern = locations::temporaryDirectory().appending("tidewell-test-XXXXXX").path();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp");
    return URL::file(pattern);
  }
  files::TemporaryTree tree_;
};

/// Sets an environment variable for a scope (unsets it when `value` is null).
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const char* value) : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) old_ = old;
    value ? setenv(name_.c_str(), value, 1) : unsetenv(name_.c_str());
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }

 private:
  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace tidewell::test
