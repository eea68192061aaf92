// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <optional>
#include <string>

#include "TidewellBackground/resident/Bus.h"
#include "TidewellBackground/resident/Desktop.h"
#include "TidewellBackground/resident/StatusMenu.h"

namespace tidewell {

/// An item in the desktop's status area (org.kde.StatusNotifierItem), registered with the watcher whenever
/// there is one. It has a connection of its own: every host takes the end of that for the end of the item.
class StatusNotifierItem final : public StatusItem {
 public:
  /// `number` tells the items of this process apart. Throws `std::system_error` when there is no session bus.
  StatusNotifierItem(EventLoop& loop, int number);
  StatusNotifierItem(const StatusNotifierItem&) = delete;
  StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

  void setTitle(const std::string& title) override;
  void setToolTip(const std::string& toolTip) override;

 private:
  static int title(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                   sd_bus_error*) noexcept;
  static int toolTip(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                     sd_bus_error*) noexcept;
  static int iconThemePath(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                           sd_bus_error*) noexcept;
  static const sd_bus_vtable interface[];

  void emit(const char* signal);
  void registerWithWatcher();

  std::string title_;
  std::string toolTip_;
  std::string iconThemePath_;
  BusConnection bus_;
  std::string name_;
  StatusMenu menu_;
  BusSlot slot_;
  std::optional<BusMatch> watcherChanged_;
};

class StatusNotifierArea final : public StatusBar {
 public:
  explicit StatusNotifierArea(EventLoop& loop) : loop_(loop) {}
  std::unique_ptr<StatusItem> makeStatusItem() override;

 private:
  EventLoop& loop_;
  int items_ = 0;  ///< made so far
};

}  // namespace tidewell
