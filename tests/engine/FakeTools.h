// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Files.h"
#include "support/Script.h"
#include "support/TemporaryFolder.h"

namespace tidewell::test {

/// A tools directory of scripts. An encoder writes the file that the test has prepared as its answer, the
/// metric prints the prepared score, and each run is a line of the log. The name of the output decides, so
/// "jpegli-420-72.jpg" is at once the answer to that step and, in "scores", its score.
class FakeTools {
 public:
  explicit FakeTools(const std::vector<std::string>& names = {"cjpegli", "ssimulacra2", "pngquant", "oxipng",
                                                              "gifsicle"}) {
    files::createDirectory(folder_ / "scores");
    for (const auto& name : names) {
      writeScript(folder_, "tools/" + name, name == "ssimulacra2" ? metric() : encoder(name));
    }
  }

  URL directory() const { return folder_ / "tools"; }
  /// Without an answer the encoder fails with status 3.
  URL answer(const std::string& output) const { return folder_ / ("answer-" + output); }
  void score(const std::string& output, double value) const {
    folder_.write("scores/" + output, std::to_string(value));
  }
  /// Shell commands that every encoder runs first.
  void first(const std::string& commands) const { folder_.write("first", commands); }

  /// The runs so far: the tool's name and its arguments, directories taken off paths.
  std::vector<std::string> runs() const {
    std::vector<std::string> lines;
    std::ifstream log((folder_ / "log").path());
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }

 private:
  std::string log(const std::string& name) const {
    return "here='" + folder_.url().path() + "'; line='" + name +
           "'\n"
           "for a in \"$@\"; do line=\"$line ${a##*/}\"; done\n"
           "echo \"$line\" >> \"$here/log\"\n";
  }
  std::string encoder(const std::string& name) const {
    // The output is the second argument, or follows "--output", "--out" or "-o" (of which the last counts).
    return log(name) +
           "[ -f \"$here/first\" ] && . \"$here/first\"\n"
           "out=$2; before=\n"
           "for a in \"$@\"; do case $before in --output|--out) out=$a;; -o) case $a in 1) ;; *) out=$a;; "
           "esac;; esac; before=$a; done\n"
           "cp \"$here/answer-${out##*/}\" \"$out\" || exit 3";
  }
  std::string metric() const {
    return log("ssimulacra2") + "cat \"$here/scores/${2##*/}\" 2>/dev/null || echo 95.5";
  }

  TemporaryFolder folder_;
};

}  // namespace tidewell::test
