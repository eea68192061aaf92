// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/wording/Errors.h"
#include "CompressionKit/wording/Texts.h"
#include "Tidewell/Output.h"

namespace tidewell {
namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 16;
constexpr std::string_view eraseLine = "\r\x1b[K";

std::size_t columnsOf(int descriptor) {
  winsize size{};
  return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool environmentAllowsColor() {
  const char* none = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return (none == nullptr || *none == '\0') && terminal != nullptr && std::string_view(terminal) != "dumb";
}

/// Writes everything; 0 or the errno value of the failure, EINTR when it was asked to stop.
int writeAll(int descriptor, std::string_view text, const StopToken& stop) {
  while (!text.empty()) {
    pollfd watched[] = {{.fd = descriptor, .events = POLLOUT, .revents = 0},
                        {.fd = stop.descriptor(), .events = 0, .revents = 0}};
    if (poll(watched, std::size(watched), -1) < 0 && errno != EINTR) return errno;
    if (watched[0].revents == 0) {
      if (stop.stopRequested()) return EINTR;
      continue;
    }
    // A pipe with any room takes this much at once.
    const ssize_t count = write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR && errno != EAGAIN) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

Terminal::Terminal(int output, int errors)
    : output_(output),
      errors_(errors),
      outputIsTerminal_(isatty(output) != 0),
      errorsAreTerminal_(isatty(errors) != 0) {}

void Terminal::setStop(StopToken stop) {
  const std::lock_guard lock(mutex_);
  stop_ = std::move(stop);
  [[maybe_unused]] const int made = stop_.descriptor();  // later there may be none left
}

void Terminal::print(std::string_view line) {
  const std::lock_guard lock(mutex_);
  if (closed_ || failure_ != 0) return;
  buffer_ += line;
  buffer_ += '\n';
  if (buffer_.size() >= bufferSize) flushLocked();
}

void Terminal::flush() {
  const std::lock_guard lock(mutex_);
  flushLocked();
}

void Terminal::flushLocked() {
  if (buffer_.empty()) return;
  const std::string text = std::exchange(buffer_, {});
  if (closed_ || failure_ != 0) return;
  const bool covered = outputIsTerminal_ && !progress_.empty();
  if (covered) writeErrorsLocked(eraseLine);
  const int code = writeAll(output_, text, stop_);
  if (code == EPIPE) {
    closed_ = true;
  } else if (code != 0) {
    failure_ = code;
  }
  if (covered) writeErrorsLocked(progress_);
}

bool Terminal::isClosed() const {
  const std::lock_guard lock(mutex_);
  return closed_;
}

void Terminal::complain(std::string_view message) {
  tell("tidewell: " + std::string(message));
}

void Terminal::tell(std::string_view line) {
  const std::lock_guard lock(mutex_);
  if (outputIsTerminal_) flushLocked();
  std::string text(progress_.empty() ? "" : eraseLine);
  text.append(line).append("\n").append(progress_);
  writeErrorsLocked(text);
}

void Terminal::showProgress(std::string_view line) {
  if (!errorsAreTerminal_) return;
  const std::lock_guard lock(mutex_);
  if (line.empty() && progress_.empty()) return;
  progress_ = prefixOfWidth(line, columnsOf(errors_) - 1);
  writeErrorsLocked(std::string(eraseLine) + progress_);
}

void Terminal::writeErrorsLocked(std::string_view text) {
  // Nobody is left to tell where this fails.
  [[maybe_unused]] const int code = writeAll(errors_, text, stop_);
}

int Terminal::finish(int status) {
  showProgress("");
  const std::lock_guard lock(mutex_);
  flushLocked();
  if (close(output_) != 0 && failure_ == 0 && !closed_ && errno != EINTR) failure_ = errno;
  if (failure_ == 0 || failure_ == EINTR) return status;
  writeErrorsLocked("tidewell: " + filled(_("Cannot write the results: {1}"), {describedErrno(failure_)}) +
                    "\n");
  return status == 0 ? 1 : status;
}

std::string Terminal::styled(Style style, std::string_view text) const {
  const bool colored = color_ == Color::always ||
                       (color_ == Color::automatic && outputIsTerminal_ && environmentAllowsColor());
  static constexpr const char* codes[] = {"", "1", "2", "32", "31"};
  if (!colored || style == Style::plain) return std::string(text);
  return std::string("\x1b[") + codes[static_cast<int>(style)] + "m" + std::string(text) + "\x1b[0m";
}

std::size_t Terminal::columns() const {
  return outputIsTerminal_ ? columnsOf(output_) : 0;
}

}  // namespace tidewell
