// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellBackground/resident/SessionService.h"

#include <systemd/sd-daemon.h>

#include <string_view>
#include <utility>

#include "TidewellBackground/resident/EventLoop.h"

namespace tidewell {
namespace {

constexpr const char* serviceName = "com.vantor.tidewell.Background";
constexpr const char* applicationPath = "/com/vantor/tidewell/Background";
constexpr const char* notificationPath = "/com/vantor/tidewell";
constexpr const char* notificationInterfaceName = "com.vantor.tidewell";

/// Reads the data of a request: what it says of other things, or with a value of another type, is passed
/// over.
int readOptions(sd_bus_message* message, CompressionOptions& options) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
  while (result >= 0 &&
         (result = sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv")) > 0) {
    const char *text = nullptr, *contents = nullptr;
    char type = 0;
    if ((result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text)) < 0) break;
    const std::string_view key = text;
    bool* const option = key == "keep-metadata" ? &options.keepMetadata
                         : key == "keep-times"  ? &options.keepTimes
                                                : nullptr;
    if ((result = sd_bus_message_peek_type(message, &type, &contents)) < 0) break;
    if (option && std::string_view(contents) == "b") {
      int value = 0;
      result = sd_bus_message_read(message, "v", "b", &value);
      *option = value != 0;
    } else {
      result = sd_bus_message_skip(message, "v");
    }
    if (result < 0 || (result = sd_bus_message_exit_container(message)) < 0) break;
  }
  return result;
}

}  // namespace

const sd_bus_vtable SessionService::applicationInterface[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Activate", "a{sv}", "", SessionService::ignore, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Open", "asa{sv}", "", SessionService::open, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ActivateAction", "sava{sv}", "", SessionService::activateAction,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

const sd_bus_vtable SessionService::notificationInterface[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_SIGNAL("historyDidChange", "", 0), SD_BUS_VTABLE_END};

SessionService::SessionService(EventLoop& loop, Handlers handlers)
    : handlers_(std::move(handlers)),
      bus_(openSessionBus(loop)),
      application_(addInterface(bus_.get(), applicationPath, "org.freedesktop.Application",
                                applicationInterface, this)),
      notifications_(
          addInterface(bus_.get(), notificationPath, notificationInterfaceName, notificationInterface, this)),
      undoDidChange_(bus_.get(),
                     "type='signal',path='/com/vantor/tidewell',interface='com.vantor.tidewell',"
                     "member='undoDidChange'",
                     [this](sd_bus_message*) { handlers_.undoDidChange(); }),
      disconnected_(bus_.get(),
                    "type='signal',sender='org.freedesktop.DBus.Local',"
                    "interface='org.freedesktop.DBus.Local',member='Disconnected'",
                    [this](sd_bus_message*) { handlers_.disconnected(); }) {}

bool SessionService::acquireName() {
  const int result = sd_bus_request_name(bus_.get(), serviceName, 0);
  if (result == -EEXIST) return false;
  check(result, "sd_bus_request_name");
  return true;
}

void SessionService::resign() {
  // The service manager must know first: a start request that comes while it still takes us for running would
  // be answered by doing nothing.
  if (sd_notify(0, "STOPPING=1") > 0) sd_notify_barrier(0, 5'000'000);
  sd_bus_release_name(bus_.get(), serviceName);
  while (sd_bus_process(bus_.get(), nullptr) > 0) {
  }
}

void SessionService::extendStop() {
  sd_notify(0, "EXTEND_TIMEOUT_USEC=86400000000");  // a day
}

void SessionService::postHistoryDidChange() {
  sd_bus_emit_signal(bus_.get(), notificationPath, notificationInterfaceName, "historyDidChange", "");
}

int SessionService::open(sd_bus_message* message, void* self, sd_bus_error*) noexcept {
  std::vector<URL> urls;
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "s");
  if (result < 0) return result;
  const char* text = nullptr;
  while ((result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text)) > 0) {
    if (auto url = URL::parse(text)) urls.push_back(std::move(*url));
  }
  if (result < 0) return result;
  CompressionOptions options;
  if ((result = sd_bus_message_exit_container(message)) < 0) return result;
  if ((result = readOptions(message, options)) < 0) return result;
  static_cast<SessionService*>(self)->handlers_.open(urls, options);
  return sd_bus_reply_method_return(message, "");
}

int SessionService::activateAction(sd_bus_message* message, void* self, sd_bus_error*) noexcept {
  const char* action = nullptr;
  const int result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &action);
  if (result < 0) return result;
  if (std::string_view(action) == "stop") static_cast<SessionService*>(self)->handlers_.stop();
  return sd_bus_reply_method_return(message, "");
}

// Being started is all that activation asks for.
int SessionService::ignore(sd_bus_message* message, void*, sd_bus_error*) noexcept {
  return sd_bus_reply_method_return(message, "");
}

}  // namespace tidewell
