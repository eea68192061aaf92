// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Stop.h"

namespace tidewell {

/// Standard output for results and standard error for progress and complaints. Thread-safe.
///
/// Once the reader of standard output is gone, nothing more is printed, and that is no error. Any other
/// failure to print is told once and makes `finish` give another status.
class Terminal {
 public:
  enum class Color { automatic, never, always };
  enum class Style { plain, bold, dim, good, bad };

  /// Both descriptors stay the caller's. SIGPIPE must be ignored.
  explicit Terminal(int output = 1, int errors = 2);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  void setColor(Color color) { color_ = color; }
  /// A stop request ends the wait for a reader that does not read. Throws `FileError` when no descriptor is
  /// left, and is the only one that does.
  void setStop(StopToken stop);

  /// One line of results. It may wait in a buffer until `flush`, a full buffer or `finish`.
  void print(std::string_view line);
  void flush();
  /// Nobody reads standard output any more.
  bool isClosed() const;
  /// One line for people on standard error: "tidewell: …".
  void complain(std::string_view message);
  /// A line on standard error as it is.
  void tell(std::string_view line);

  /// The one line of progress at the foot of the terminal, cut to its width; whatever else is written goes
  /// above it. An empty one removes it. Nothing happens where standard error is no terminal.
  void showProgress(std::string_view line);
  bool showsProgress() const { return errorsAreTerminal_; }

  /// Writes what waits and closes standard output (a network file system tells of a full disk only here).
  /// Returns `status`, or 1 where that is 0 and not everything could be printed.
  int finish(int status);

  /// The text with colours for standard output, where these are wanted there.
  std::string styled(Style style, std::string_view text) const;
  /// Columns of standard output's terminal; 0 when it is none.
  std::size_t columns() const;

 private:
  void flushLocked();
  void writeErrorsLocked(std::string_view text);

  mutable std::mutex mutex_;
  int output_;
  int errors_;
  bool outputIsTerminal_;
  bool errorsAreTerminal_;
  Color color_ = Color::automatic;
  StopToken stop_;
  std::string buffer_;
  std::string progress_;
  bool closed_ = false;
  int failure_ = 0;  ///< the errno value of the first failure
};

}  // namespace tidewell
