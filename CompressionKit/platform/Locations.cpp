// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Locations.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "CompressionKit/platform/Error.h"

namespace tidewell::locations {
namespace {

/// An absolute path from the environment; empty when unset or relative.
std::string absoluteVariable(const char* name) {
  const char* value = std::getenv(name);
  return value && value[0] == '/' ? value : "";
}

URL homeDirectory() {
  if (const auto home = absoluteVariable("HOME"); !home.empty()) return URL::file(home);
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
    return URL::file(found->pw_dir);
  }
  return URL::file("/");
}

URL baseDirectory(const char* variable, const char* belowHome) {
  if (const auto path = absoluteVariable(variable); !path.empty()) return URL::file(path);
  return homeDirectory().appending(belowHome);
}

}  // namespace

URL temporaryDirectory() {
  const auto path = absoluteVariable("TMPDIR");
  return URL::file(path.empty() ? "/tmp" : path);
}

URL largeTemporaryDirectory() {
  const auto path = absoluteVariable("TMPDIR");
  return URL::file(path.empty() ? "/var/tmp" : path);
}

URL applicationSupportDirectory() {
  return baseDirectory("XDG_DATA_HOME", ".local/share");
}

URL configurationDirectory() {
  return baseDirectory("XDG_CONFIG_HOME", ".config");
}

URL undoStore() {
  return applicationSupportDirectory().appending("Tidewell/Undo");
}

URL compressionDiagnostics(const URL& undoStore) {
  return undoStore.standardized().deletingLastPathComponent().appending("CompressionDiagnostics");
}

URL compressionLocks() {
  return applicationSupportDirectory().appending("Tidewell/CompressionLocks");
}

URL backgroundDirectory() {
  return applicationSupportDirectory().appending("Tidewell/Background");
}

URL latestResult() {
  return backgroundDirectory().appending("latest.json");
}

URL stateDirectory() {
  return baseDirectory("XDG_STATE_HOME", ".local/state").appending("tidewell");
}

URL settingsFile() {
  return configurationDirectory().appending("tidewell/tidewell.conf");
}

URL executableDirectory() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw FileError("读取", "/proc/self/exe", error.value());
  return URL::file(path.native()).deletingLastPathComponent();
}

URL programsDirectory() {
  return executableDirectory().appending("../lib/tidewell").standardized();
}

URL toolsDirectory() {
  return programsDirectory().appending("tools");
}

URL iconThemesDirectory() {
  return executableDirectory().appending("../share/icons").standardized();
}

}  // namespace tidewell::locations
