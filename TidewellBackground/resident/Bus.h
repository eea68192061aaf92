// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <memory>
#include <system_error>

namespace tidewell {

class EventLoop;

/// The result of a libsystemd call; throws `std::system_error` for a negative errno value.
inline int check(int result, const char* call) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), call);
  return result;
}

/// Owned objects of sd-bus. A connection sends what it still holds before it closes.
struct BusRelease {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusConnection = std::unique_ptr<sd_bus, BusRelease>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusRelease>;
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;

/// New connections, served by the loop. Throw `std::system_error` when there is no such bus.
BusConnection openSessionBus(EventLoop& loop);
BusConnection openSystemBus(EventLoop& loop);

/// An object's interface, there as long as the slot.
BusSlot addInterface(sd_bus* bus, const char* path, const char* interface, const sd_bus_vtable* table,
                     void* object);

/// Calls a function for every message that a match rule lets through.
class BusMatch {
 public:
  BusMatch(sd_bus* bus, const char* rule, std::function<void(sd_bus_message*)> action);
  BusMatch(const BusMatch&) = delete;
  BusMatch& operator=(const BusMatch&) = delete;

 private:
  static int arrived(sd_bus_message* message, void* self, sd_bus_error*) noexcept;

  std::function<void(sd_bus_message*)> action_;
  BusSlot slot_;
};

}  // namespace tidewell
