// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>

#include "CompressionKit/platform/URL.h"
#include "support/TemporaryFolder.h"

namespace tidewell::test {

/// Scripts start programs, which a confined tool cannot: tests that use any run their tools unconfined.
inline const bool scriptsStartPrograms = setenv("TIDEWELL_CONFINE", "off", 1) == 0;

/// Writes an executable shell script, a stand-in for a tool.
inline URL writeScript(const TemporaryFolder& folder, std::string_view name, std::string_view body) {
  const URL script = folder.write(name, "#!/bin/sh\n" + std::string(body) + "\n");
  chmod(script.path().c_str(), 0755);
  return script;
}

/// A named pipe through which a script says how far it is ("echo text > pipe").
class Signpost {
 public:
  explicit Signpost(URL url) : url_(std::move(url)) { mkfifo(url_.path().c_str(), 0600); }

  const std::string& path() const { return url_.path(); }
  /// Waits for the script and returns what it said.
  std::string wait() const {
    std::string line;
    std::getline(std::ifstream(url_.path()), line);
    return line;
  }

 private:
  URL url_;
};

}  // namespace tidewell::test
