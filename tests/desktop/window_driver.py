# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Drives the window as a user without a mouse does: by the keyboard, and by what assistive programs are told.

A session of its own: display, buses, home. `run` starts a script anew in it; a `Window` in there is the program.
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import time

SERVICE = "com.vantor.tidewell.Background"
PLACES = {"XDG_DATA_HOME": "data", "XDG_CONFIG_HOME": "config", "XDG_STATE_HOME": "state", "XDG_CACHE_HOME": "cache",
          "XDG_RUNTIME_DIR": "run", "TMPDIR": "tmp"}


def run(script, build, *arguments, size=(1400, 900), **variables):
    """The script's status, run with the build's service known to the bus."""
    with tempfile.TemporaryDirectory(prefix="tidewell-window-") as folder:
        environment = dict(os.environ, HOME=folder, TIDEWELL_WINDOW_SESSION="1", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
                           QT_QPA_PLATFORM="xcb", NO_AT_BRIDGE="0", **variables)
        for variable in ("WAYLAND_DISPLAY", "QT_QPA_PLATFORMTHEME", "QT_STYLE_OVERRIDE", "DBUS_SESSION_BUS_ADDRESS"):
            environment.pop(variable, None)
        for variable, name in PLACES.items():
            os.mkdir(f"{folder}/{name}", 0o700)
            environment[variable] = f"{folder}/{name}"
        service = service_file(pathlib.Path(folder, "data"))
        service.parent.mkdir(parents=True)
        service.write_text(f"[D-BUS Service]\nName={SERVICE}\nExec=\"{build}/bin/TidewellBackground\"\n")
        # Without -noreset the display starts anew when its last client leaves, and refuses whoever comes just then.
        screen = f"-screen 0 {size[0]}x{size[1]}x24 -nolisten tcp -noreset"
        return subprocess.run(["xvfb-run", "-a", "-s", screen,
                               "dbus-run-session", "--", sys.executable, "-B", script, build, *arguments],
                              env=environment).returncode


def service_file(data=None):
    """By which the bus knows the service."""
    return pathlib.Path(data or os.environ["XDG_DATA_HOME"], f"dbus-1/services/{SERVICE}.service")


def reload_bus():
    subprocess.run(["dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                    "org.freedesktop.DBus.ReloadConfig"], check=True, stdout=subprocess.DEVNULL)


def is_inside():
    return "TIDEWELL_WINDOW_SESSION" in os.environ


class Window:
    def __init__(self, build, *arguments, waits=True, **variables):
        import gi
        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi
        self.atspi = Atspi
        Atspi.init()
        self.process = subprocess.Popen([f"{build}/bin/tidewell-desktop", *arguments], env=dict(os.environ, **variables))
        if waits:
            self.wait(lambda: self.application() is not None, "the window")

    def application(self):
        desktop = self.atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            child = desktop.get_child_at_index(index)
            if child and child.get_process_id() == self.process.pid:
                return child
        return None

    def walk(self, node=None):
        """All that is to be seen."""
        from gi.repository import GLib
        try:
            node = node or self.application()
            if node is None:
                return
            yield node
            for index in range(min(node.get_child_count(), 400)):
                child = node.get_child_at_index(index)
                if child and child.get_state_set().contains(self.atspi.StateType.SHOWING):
                    yield from self.walk(child)
        except GLib.Error:
            return  # it went while we looked

    def find(self, text, role=None):
        """The first thing whose name has the text in it, or nothing."""
        for node in self.walk():
            if text in (node.get_name() or "") and role in (None, node.get_role_name()):
                return node
        return None

    def names(self):
        return [f"{node.get_role_name()}: {node.get_name()}" for node in self.walk() if node.get_name()]

    def wait(self, condition, what, seconds=120):
        """The limit is for a broken window, not for a slow machine."""
        end = time.monotonic() + seconds
        while not (result := condition()):
            if self.process.poll() is not None:
                raise AssertionError(f"the window ended with {self.process.returncode}, waited for {what}")
            if time.monotonic() > end:
                raise AssertionError(f"waited in vain for {what}; to be seen:\n" + "\n".join(self.names()))
            time.sleep(0.05)
        return result

    def wait_for(self, text, role=None, seconds=120):
        return self.wait(lambda: self.find(text, role), f"“{text}”", seconds)

    def is_enabled(self, text, role="push button"):
        node = self.find(text, role)
        return node is not None and node.get_state_set().contains(self.atspi.StateType.ENABLED)

    @staticmethod
    def press(*keys):
        """Keys as in "ctrl+shift+r"."""
        subprocess.run(["xdotool", "key", "--delay", "60", *keys], check=True)

    @staticmethod
    def type(text):
        subprocess.run(["xdotool", "type", "--delay", "60", text], check=True)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self, seconds=30):
        return self.process.wait(seconds)


def copy_files(paths):
    """Puts files into the clipboard, as a file manager does. The process holds them."""
    uris = "".join(f"{pathlib.Path(path).as_uri()}\r\n" for path in paths)
    holder = subprocess.Popen(["xclip", "-quiet", "-selection", "clipboard", "-t", "text/uri-list", "-i"],
                              stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
    holder.stdin.write(uris.encode())
    holder.stdin.close()
    return holder
