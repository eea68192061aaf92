// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/Bus.h"

#include <utility>

#include "TidewellBackground/resident/EventLoop.h"

namespace tidewell {
namespace {

BusConnection attached(sd_bus* bus, EventLoop& loop) {
  BusConnection connection(bus);
  check(sd_bus_attach_event(bus, loop.handle(), SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
  return connection;
}

}  // namespace

BusConnection openSessionBus(EventLoop& loop) {
  sd_bus* bus = nullptr;
  check(sd_bus_open_user(&bus), "sd_bus_open_user");
  return attached(bus, loop);
}

BusConnection openSystemBus(EventLoop& loop) {
  sd_bus* bus = nullptr;
  check(sd_bus_open_system(&bus), "sd_bus_open_system");
  return attached(bus, loop);
}

BusSlot addInterface(sd_bus* bus, const char* path, const char* interface, const sd_bus_vtable* table,
                     void* object) {
  sd_bus_slot* slot = nullptr;
  check(sd_bus_add_object_vtable(bus, &slot, path, interface, table, object), "sd_bus_add_object_vtable");
  return BusSlot(slot);
}

BusMatch::BusMatch(sd_bus* bus, const char* rule, std::function<void(sd_bus_message*)> action)
    : action_(std::move(action)) {
  sd_bus_slot* slot = nullptr;
  check(sd_bus_add_match_async(bus, &slot, rule, arrived, nullptr, this), "sd_bus_add_match_async");
  slot_.reset(slot);
}

int BusMatch::arrived(sd_bus_message* message, void* self, sd_bus_error*) noexcept {
  static_cast<BusMatch*>(self)->action_(message);
  return 0;
}

}  // namespace tidewell
