// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <functional>
#include <vector>

#include "CompressionKit/engine/CompressionOptions.h"
#include "CompressionKit/platform/URL.h"
#include "TidewellBackground/resident/Bus.h"
#include "TidewellBackground/resident/Desktop.h"

namespace tidewell {

/// This process on the session bus: its well-known name, the open requests of org.freedesktop.Application,
/// and the notifications from and to the foreground application.
class SessionService final : public Notifications {
 public:
  struct Handlers {
    /// One call for each request.
    std::function<void(const std::vector<URL>&, const CompressionOptions&)> open;
    std::function<void()> stop;  ///< the batches that run now
    std::function<void()> undoDidChange;
    std::function<void()> disconnected;  ///< the bus has gone, and with it the session
  };
  /// Throws `std::system_error` when there is no session bus.
  SessionService(EventLoop& loop, Handlers handlers);
  SessionService(const SessionService&) = delete;
  SessionService& operator=(const SessionService&) = delete;

  /// From here on requests arrive. False when another process has the name.
  bool acquireName();

  /// Gives the name up, so that the next request starts a new process, and handles the requests that were
  /// sent to this one before: none is lost between the decision to leave and the end. Must not be called
  /// from a handler.
  void resign();

  /// Asks the service manager, which counts the time since `resign`, to be patient with a last batch.
  void extendStop();

  void postHistoryDidChange() override;

 private:
  static int open(sd_bus_message* message, void* self, sd_bus_error*) noexcept;
  static int activateAction(sd_bus_message* message, void* self, sd_bus_error*) noexcept;
  static int ignore(sd_bus_message* message, void* self, sd_bus_error*) noexcept;

  static const sd_bus_vtable applicationInterface[];
  static const sd_bus_vtable notificationInterface[];

  Handlers handlers_;
  BusConnection bus_;
  BusSlot application_;
  BusSlot notifications_;
  BusMatch undoDidChange_;
  BusMatch disconnected_;
};

}  // namespace tidewell
