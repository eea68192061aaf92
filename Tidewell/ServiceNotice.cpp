// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "Tidewell/ServiceNotice.h"

#include <systemd/sd-bus.h>

#include <memory>

namespace tidewell {

void noticeUndoDidChange() noexcept {
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0) return;
  // A signal, which starts nobody.
  const std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> bus(opened, sd_bus_flush_close_unref);
  sd_bus_emit_signal(bus.get(), "/com/vantor/tidewell", "com.vantor.tidewell", "undoDidChange", "");
}

}  // namespace tidewell
