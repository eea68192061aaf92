// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/StatusMenu.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace tidewell {
namespace {

constexpr const char* interfaceName = "com.canonical.dbusmenu";

// The whole layout: the root and below it the text.
constexpr int rootItem = 0;
constexpr int textItem = 1;

constexpr char status[] = "normal";
constexpr char textDirection[] = "ltr";

template <const char* value>
int constant(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, value);
}

int version(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append(reply, "u", 3U);
}

int iconThemePath(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*,
                  sd_bus_error*) {
  return sd_bus_message_append(reply, "as", 0);
}

int noSuchItem(sd_bus_error* error, int item) {
  return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS, "no item %d", item);
}

BusMessage makeReply(sd_bus_message* call) {
  sd_bus_message* reply = nullptr;
  check(sd_bus_message_new_method_return(call, &reply), "sd_bus_message_new_method_return");
  return BusMessage(reply);
}

int appendProperties(sd_bus_message* reply, int item, const std::string& text) {
  if (item == rootItem) return sd_bus_message_append(reply, "a{sv}", 1, "children-display", "s", "submenu");
  return sd_bus_message_append(reply, "a{sv}", 2, "label", "s", text.c_str(), "enabled", "b", 0);
}

int nothingToDo(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return sd_bus_reply_method_return(call, "");
}

int noErrors(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return sd_bus_reply_method_return(call, "ai", 0);
}

int noUpdateNeeded(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return sd_bus_reply_method_return(call, "b", 0);
}

int noUpdatesNeeded(sd_bus_message* call, void*, sd_bus_error*) noexcept {
  return sd_bus_reply_method_return(call, "aiai", 0, 0);
}

}  // namespace

const sd_bus_vtable StatusMenu::interface[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Version", "u", version, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("TextDirection", "s", constant<textDirection>, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Status", "s", constant<status>, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconThemePath", "as", iconThemePath, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("GetLayout", "iias", "u(ia{sv}av)", StatusMenu::getLayout, 0),
    SD_BUS_METHOD("GetGroupProperties", "aias", "a(ia{sv})", StatusMenu::getGroupProperties, 0),
    SD_BUS_METHOD("GetProperty", "is", "v", StatusMenu::getProperty, 0),
    SD_BUS_METHOD("Event", "isvu", "", nothingToDo, 0),
    SD_BUS_METHOD("EventGroup", "a(isvu)", "ai", noErrors, 0),
    SD_BUS_METHOD("AboutToShow", "i", "b", noUpdateNeeded, 0),
    SD_BUS_METHOD("AboutToShowGroup", "ai", "aiai", noUpdatesNeeded, 0),
    SD_BUS_SIGNAL("ItemsPropertiesUpdated", "a(ia{sv})a(ias)", 0),
    SD_BUS_SIGNAL("LayoutUpdated", "ui", 0),
    SD_BUS_SIGNAL("ItemActivationRequested", "iu", 0),
    SD_BUS_VTABLE_END};

StatusMenu::StatusMenu(sd_bus* bus)
    : bus_(bus), slot_(addInterface(bus, path, interfaceName, interface, this)) {}

void StatusMenu::setText(const std::string& text) {
  text_ = text;
  sd_bus_emit_signal(bus_, path, interfaceName, "LayoutUpdated", "ui", ++revision_, rootItem);
}

int StatusMenu::getLayout(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
  const auto& menu = *static_cast<StatusMenu*>(self);
  int parent = rootItem;
  int depth = 0;  // of levels below the parent; negative for all
  if (const int result = sd_bus_message_read(call, "ii", &parent, &depth); result < 0) return result;
  if (parent != rootItem && parent != textItem) return noSuchItem(error, parent);

  const auto reply = makeReply(call);
  sd_bus_message_append(reply.get(), "u", menu.revision_);
  sd_bus_message_open_container(reply.get(), SD_BUS_TYPE_STRUCT, "ia{sv}av");
  sd_bus_message_append(reply.get(), "i", parent);
  appendProperties(reply.get(), parent, menu.text_);
  sd_bus_message_open_container(reply.get(), SD_BUS_TYPE_ARRAY, "v");
  if (parent == rootItem && depth != 0) {
    sd_bus_message_open_container(reply.get(), SD_BUS_TYPE_VARIANT, "(ia{sv}av)");
    sd_bus_message_open_container(reply.get(), SD_BUS_TYPE_STRUCT, "ia{sv}av");
    sd_bus_message_append(reply.get(), "i", textItem);
    appendProperties(reply.get(), textItem, menu.text_);
    sd_bus_message_append(reply.get(), "av", 0);
    sd_bus_message_close_container(reply.get());
    sd_bus_message_close_container(reply.get());
  }
  sd_bus_message_close_container(reply.get());
  sd_bus_message_close_container(reply.get());
  // An append that failed makes the message unsendable, which shows here.
  return sd_bus_send(nullptr, reply.get(), nullptr);
}

int StatusMenu::getGroupProperties(sd_bus_message* call, void* self, sd_bus_error*) noexcept {
  const auto& menu = *static_cast<StatusMenu*>(self);
  const void* data = nullptr;
  std::size_t bytes = 0;
  if (const int result = sd_bus_message_read_array(call, SD_BUS_TYPE_INT32, &data, &bytes); result < 0) {
    return result;
  }
  const auto* wanted = static_cast<const int*>(data);
  const auto* end = wanted + bytes / sizeof(int);

  const auto reply = makeReply(call);
  sd_bus_message_open_container(reply.get(), SD_BUS_TYPE_ARRAY, "(ia{sv})");
  for (const int item : {rootItem, textItem}) {
    if (wanted != end && std::find(wanted, end, item) == end) continue;  // no list means all
    sd_bus_message_open_container(reply.get(), SD_BUS_TYPE_STRUCT, "ia{sv}");
    sd_bus_message_append(reply.get(), "i", item);
    appendProperties(reply.get(), item, menu.text_);
    sd_bus_message_close_container(reply.get());
  }
  sd_bus_message_close_container(reply.get());
  return sd_bus_send(nullptr, reply.get(), nullptr);
}

int StatusMenu::getProperty(sd_bus_message* call, void* self, sd_bus_error* error) noexcept {
  const auto& menu = *static_cast<StatusMenu*>(self);
  int item = rootItem;
  const char* text = nullptr;
  if (const int result = sd_bus_message_read(call, "is", &item, &text); result < 0) return result;
  const std::string_view name = text;
  if (item == rootItem && name == "children-display") {
    return sd_bus_reply_method_return(call, "v", "s", "submenu");
  }
  if (item == textItem && name == "label")
    return sd_bus_reply_method_return(call, "v", "s", menu.text_.c_str());
  if (item == textItem && name == "enabled") return sd_bus_reply_method_return(call, "v", "b", 0);
  return noSuchItem(error, item);
}

}  // namespace tidewell
