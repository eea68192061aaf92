// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>

#include "TidewellBackground/resident/Bus.h"

namespace tidewell {

/// The menu that status areas want behind an item (com.canonical.dbusmenu): one line of text, not selectable.
class StatusMenu {
 public:
  static constexpr const char* path = "/StatusNotifierItem/Menu";

  explicit StatusMenu(sd_bus* bus);
  StatusMenu(const StatusMenu&) = delete;
  StatusMenu& operator=(const StatusMenu&) = delete;

  void setText(const std::string& text);

 private:
  static int getLayout(sd_bus_message* call, void* self, sd_bus_error* error) noexcept;
  static int getGroupProperties(sd_bus_message* call, void* self, sd_bus_error*) noexcept;
  static int getProperty(sd_bus_message* call, void* self, sd_bus_error* error) noexcept;

  static const sd_bus_vtable interface[];

  sd_bus* bus_;
  std::string text_;
  unsigned revision_ = 1;
  BusSlot slot_;
};

}  // namespace tidewell
