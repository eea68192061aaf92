// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/StatusNotifierItem.h"

#include <unistd.h>

#include <string_view>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "TidewellBackground/resident/EventLoop.h"

namespace tidewell {
namespace {

constexpr const char* itemPath = "/StatusNotifierItem";
constexpr const char* interfaceName = "org.kde.StatusNotifierItem";
constexpr const char* watcherName = "org.kde.StatusNotifierWatcher";

constexpr char category[] = "ApplicationStatus";
constexpr char identifier[] = "com.vantor.tidewell.Background";
constexpr char status[] = "Active";
constexpr char iconName[] = "com.vantor.tidewell.Background";
constexpr char none[] = "";

template <const char* value>
int constant(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, value);
}

int menuPath(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append_basic(reply, SD_BUS_TYPE_OBJECT_PATH, StatusMenu::path);
}

int windowId(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append(reply, "i", 0);
}

int itemIsMenu(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append(reply, "b", 1);
}

int orderingIndex(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
                  sd_bus_error*) {
  return sd_bus_message_append(reply, "u", 0U);
}

int clicked(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return sd_bus_reply_method_return(call, "");
}

/// Icons installed beside the executable, for a prefix where the desktop does not look by itself.
std::string installedIcons() {
  const URL icons = locations::iconThemesDirectory();
  return files::exists(icons.appending("hicolor")) ? icons.path() : "";
}

}  // namespace

const sd_bus_vtable StatusNotifierItem::interface[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Category", "s", constant<category>, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Id", "s", constant<identifier>, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Title", "s", StatusNotifierItem::title, 0, 0),
    SD_BUS_PROPERTY("Status", "s", constant<status>, 0, 0),
    SD_BUS_PROPERTY("WindowId", "i", windowId, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconName", "s", constant<iconName>, 0, 0),
    SD_BUS_PROPERTY("IconThemePath", "s", StatusNotifierItem::iconThemePath, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("OverlayIconName", "s", constant<none>, 0, 0),
    SD_BUS_PROPERTY("AttentionIconName", "s", constant<none>, 0, 0),
    SD_BUS_PROPERTY("ToolTip", "(sa(iiay)ss)", StatusNotifierItem::toolTip, 0, 0),
    SD_BUS_PROPERTY("ItemIsMenu", "b", itemIsMenu, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Menu", "o", menuPath, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("XAyatanaLabel", "s", StatusNotifierItem::title, 0, 0),
    SD_BUS_PROPERTY("XAyatanaLabelGuide", "s", constant<none>, 0, 0),
    SD_BUS_PROPERTY("XAyatanaOrderingIndex", "u", orderingIndex, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Activate", "ii", "", clicked, 0),
    SD_BUS_METHOD("SecondaryActivate", "ii", "", clicked, 0),
    SD_BUS_METHOD("ContextMenu", "ii", "", clicked, 0),
    SD_BUS_METHOD("Scroll", "is", "", clicked, 0),
    SD_BUS_SIGNAL("NewTitle", "", 0),
    SD_BUS_SIGNAL("NewIcon", "", 0),
    SD_BUS_SIGNAL("NewAttentionIcon", "", 0),
    SD_BUS_SIGNAL("NewOverlayIcon", "", 0),
    SD_BUS_SIGNAL("NewToolTip", "", 0),
    SD_BUS_SIGNAL("NewStatus", "s", 0),
    SD_BUS_SIGNAL("XAyatanaNewLabel", "ss", 0),
    SD_BUS_VTABLE_END};

StatusNotifierItem::StatusNotifierItem(EventLoop& loop, int number)
    : iconThemePath_(installedIcons()),
      bus_(openSessionBus(loop)),
      name_("org.kde.StatusNotifierItem-" + std::to_string(getpid()) + "-" + std::to_string(number)),
      menu_(bus_.get()),
      slot_(addInterface(bus_.get(), itemPath, interfaceName, interface, this)) {
  // Nothing here waits for an answer: requests on one connection are served in their order.
  sd_bus_request_name_async(bus_.get(), nullptr, name_.c_str(), SD_BUS_NAME_QUEUE, nullptr, nullptr);
  watcherChanged_.emplace(
      bus_.get(),
      "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
      "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
      "arg0='org.kde.StatusNotifierWatcher'",
      [this](sd_bus_message* message) {
        const char* newOwner = "";
        if (sd_bus_message_read(message, "sss", nullptr, nullptr, &newOwner) > 0 && *newOwner) {
          registerWithWatcher();
        }
      });
  registerWithWatcher();
}

void StatusNotifierItem::setTitle(const std::string& title) {
  title_ = title;
  emit("NewTitle");
  sd_bus_emit_signal(bus_.get(), itemPath, interfaceName, "XAyatanaNewLabel", "ss", title_.c_str(), "");
}

void StatusNotifierItem::setToolTip(const std::string& toolTip) {
  toolTip_ = toolTip;
  emit("NewToolTip");
  menu_.setText(toolTip);
}

void StatusNotifierItem::emit(const char* signal) {
  sd_bus_emit_signal(bus_.get(), itemPath, interfaceName, signal, "");
}

void StatusNotifierItem::registerWithWatcher() {
  sd_bus_message* call = nullptr;
  if (sd_bus_message_new_method_call(bus_.get(), &call, watcherName, "/StatusNotifierWatcher", watcherName,
                                     "RegisterStatusNotifierItem") < 0) {
    return;
  }
  const BusMessage owned(call);
  // A desktop without a status area is not to be given one, and an item that nobody shows is no error.
  sd_bus_message_set_auto_start(call, 0);
  sd_bus_message_set_expect_reply(call, 0);
  sd_bus_message_append(call, "s", name_.c_str());
  sd_bus_send(bus_.get(), call, nullptr);
}

int StatusNotifierItem::title(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                              void* self, sd_bus_error*) noexcept {
  return sd_bus_message_append(reply, "s", static_cast<StatusNotifierItem*>(self)->title_.c_str());
}

// Of the two texts of a tooltip only the first is filled: there are hosts that show one of them alone.
int StatusNotifierItem::toolTip(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                                void* self, sd_bus_error*) noexcept {
  const auto& text = static_cast<StatusNotifierItem*>(self)->toolTip_;
  return sd_bus_message_append(reply, "(sa(iiay)ss)", "", 0, text.c_str(), "");
}

int StatusNotifierItem::iconThemePath(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                                      void* self, sd_bus_error*) noexcept {
  return sd_bus_message_append(reply, "s", static_cast<StatusNotifierItem*>(self)->iconThemePath_.c_str());
}

std::unique_ptr<StatusItem> StatusNotifierArea::makeStatusItem() {
  struct Invisible final : StatusItem {
    void setTitle(const std::string&) override {}
    void setToolTip(const std::string&) override {}
  };
  try {
    return std::make_unique<StatusNotifierItem>(loop_, ++items_);
  } catch (const std::system_error&) {
    return std::make_unique<Invisible>();
  }
}

}  // namespace tidewell
