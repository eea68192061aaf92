#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""The resident service on a private session bus, with real pictures and the real tools.

    session_test.py PROGRAM GROUP       one of the classes below

The program must lie in the bin folder of a build tree, its tools in ../lib/tidewell/tools. What is missing skips
the tests, or fails them when TIDEWELL_REQUIRE_TOOLS is set.
"""

import base64
import contextlib
import fcntl
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse
import uuid

SKIPPED = 77

try:
    import dbus
    import dbus.mainloop.glib
    import dbus.service
    from gi.repository import GLib
    from PIL import Image

    import images
except ImportError as error:
    if os.environ.get("TIDEWELL_REQUIRE_TOOLS"):
        raise
    print("skipped:", error)
    sys.exit(SKIPPED)

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
BUILD = PROGRAM.parent.parent
SERVICE = "com.vantor.tidewell.Background"
WINDOW = "com.vantor.tidewell.Desktop"
WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
OLD = 1_000_000_000_123_456_789  # nanoseconds since 1970
TOKEN = "tide+well/&="
COMPRESSING = "潮汐井：压缩中…"


class Watcher(dbus.service.Object):
    def __init__(self, bus):
        self.items = []
        super().__init__(bus, "/StatusNotifierWatcher")
        bus.request_name(WATCHER)

    @dbus.service.method(WATCHER, in_signature="s")
    def RegisterStatusNotifierItem(self, name):
        self.items.append(name)


class Session(unittest.TestCase):
    """Runs in the folder that main() made, with a bus for itself."""

    def setUp(self):
        dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
        self.folder = pathlib.Path(os.environ["HOME"])
        for name in ("data", "config", "pictures"):
            shutil.rmtree(self.folder / name, ignore_errors=True)
        self.support = self.folder / "data/Tidewell"
        self.pictures = self.folder / "pictures"
        self.bus = dbus.SessionBus(private=True)
        self.bus.set_exit_on_disconnect(False)
        self.addCleanup(self.bus.close)
        self.titles, self.history = [], []
        self.bus.add_signal_receiver(lambda label, guide: self.titles.append(str(label)), "XAyatanaNewLabel", ITEM)
        self.bus.add_signal_receiver(lambda *arguments: self.history.append(arguments), "historyDidChange",
                                     "com.vantor.tidewell", path="/com/vantor/tidewell")
        self.settings = self.folder / "config/tidewell/tidewell.conf"
        self.settings.parent.mkdir(parents=True)
        self.settings.write_text(f"[Tidewell]\nTidewellCommandToken={TOKEN}\n")
        self.settings.chmod(0o600)

    def start(self):
        """The service, ready for requests. Whatever it prints is an error."""
        log = open(self.folder / "log", "w+")
        service = subprocess.Popen([PROGRAM], stdout=log, stderr=log)

        def end():
            service.kill()
            service.wait()
            log.seek(0)
            self.assertEqual(log.read(), "")
            log.close()

        self.addCleanup(end)
        self.wait(lambda: self.bus.name_has_owner(SERVICE), "the service on the bus")
        return service

    def wait(self, condition, what, seconds=120):
        """Serves the bus until the condition holds. The limit is for a broken service, not for a slow machine."""
        end = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), end, f"waited in vain for {what}; titles: {self.titles}")
            if not GLib.MainContext.default().iteration(False):
                time.sleep(0.01)

    def expect_end(self, service):
        self.wait(lambda: service.poll() is not None, "the end of the service", seconds=60)
        self.assertEqual(service.returncode, 0)

    def picture(self, name, width=400):
        self.pictures.mkdir(exist_ok=True)
        image = Image.fromarray(images.photo(width, width * 3 // 4, len(name)))
        image.save(self.pictures / name, "JPEG", quality=93, comment="of the sea")
        os.utime(self.pictures / name, ns=(OLD, OLD))
        return self.pictures / name

    def command(self, *paths, token=TOKEN):
        data = json.dumps([str(p) for p in paths]).encode()
        query = urllib.parse.urlencode({"token": token, "files": base64.b64encode(data)}, quote_via=urllib.parse.quote)
        return "tidewell-background://compress?" + query

    def open(self, *urls, data="@a{sv} {}"):
        subprocess.run(["gdbus", "call", "--session", "--dest", SERVICE, "--object-path",
                        "/com/vantor/tidewell/Background", "--method", "org.freedesktop.Application.Open",
                        f"@as {list(urls)}", data], check=True, stdout=subprocess.DEVNULL)

    def latest(self):
        return json.loads((self.support / "Background/latest.json").read_text())["items"]

    def item(self, name):
        return self.bus.get_object(name, "/StatusNotifierItem").GetAll(ITEM, dbus_interface=dbus.PROPERTIES_IFACE)

    @contextlib.contextmanager
    def all_slots_taken(self):
        """Other processes compress: batches begin, but none of their files."""
        locks = self.support / "CompressionLocks"
        locks.mkdir(parents=True, exist_ok=True)
        with contextlib.ExitStack() as stack:
            for index in range(10):
                fcntl.flock(stack.enter_context(open(locks / f"slot-{index}.lock", "w")), fcntl.LOCK_EX)
            yield

    def tools_at(self, path):
        found = []
        for line in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
            with contextlib.suppress(OSError):
                if bytes(path) in line.read_bytes():
                    found.append(int(line.parent.name))
        return found

    def expect_nothing_left_behind(self):
        self.assertEqual(list((self.folder / "tmp").iterdir()), [])
        self.assertEqual([p.name for p in self.pictures.iterdir() if p.name.startswith(".")], [])


class Commands(Session):
    def test_batches_and_what_they_show(self):
        self.start()
        first = [self.picture("a.jpg"), self.picture("bb.jpg", 300)]
        second = [self.picture("ccc.JPG", 200)]
        sizes = {p: p.stat().st_size for p in first + second}
        for url in (self.command(*first, token="tide+well/&"), self.command("a.jpg"), "file:///notes.txt", "no URL"):
            self.open(url)
        self.settings.chmod(0o620)
        self.open(self.command(*first))
        self.settings.chmod(0o600)

        with self.all_slots_taken():
            self.open(self.command(*first, first[0]))
            self.wait(lambda: self.titles, "the first title")
            watcher = Watcher(self.bus)  # a desktop that is late, then starts again
            self.wait(lambda: watcher.items, "the status item")
            shown = self.item(watcher.items[0])
            self.assertEqual(shown["ToolTip"][2:], ("后台压缩 2 张图片", ""))
            self.bus.release_name(WATCHER)
            self.bus.request_name(WATCHER)
            self.wait(lambda: len(watcher.items) == 2, "the status item after a restart")
            time.sleep(1)
            self.open(second[0].as_uri(), data="{'keep-metadata': <true>, 'other': <7>, 'keep-times': <true>}")
            self.wait(lambda: len(self.titles) == 2, "the second batch")
            self.assertEqual(self.history, [])
            self.assertEqual(self.item(watcher.items[0])["ToolTip"][2], "后台压缩 1 张图片")
        self.wait(lambda: len(self.history) == 2, "the end of both batches")
        self.wait(lambda: len(self.titles) == 4, "the last title")

        self.assertEqual(self.history, [(), ()])
        self.assertEqual(self.titles[:3], [COMPRESSING] * 3)
        self.assertRegex(self.titles[3], r"^潮汐井：节省 \d+ KB$")
        latest = self.latest()
        self.assertIn([pathlib.Path(i["path"]) for i in latest], (first, second))
        saved = sum(i["originalBytes"] - i["finalBytes"] for i in latest)
        self.assertAlmostEqual(int(self.titles[3].split()[1]), saved / 1000, delta=0.5)
        shown = self.item(watcher.items[0])
        self.assertEqual([shown[key] for key in ("Title", "XAyatanaLabel", "Status", "IconName")],
                         [self.titles[3]] * 2 + ["Active", SERVICE])
        self.assertEqual(shown["ToolTip"][2], f"已压缩 {len(latest)} 张，跳过 0 张，失败 0 张")
        for path, size in sizes.items():
            self.assertLess(path.stat().st_size, size)
            self.assertEqual(path.stat().st_mtime_ns == OLD, path in second)
            self.assertEqual(b"of the sea" in path.read_bytes(), path in second)
        self.assertEqual(len(list((self.support / "Undo").glob("*/*.json"))), 3)

        self.open(self.command(self.pictures / "none.gif"))
        self.wait(lambda: len(self.history) == 3, "the end of a batch that fails")
        self.assertEqual(self.item(watcher.items[0])["Title"], "潮汐井：1 张失败")
        self.expect_nothing_left_behind()
        self.assertEqual(subprocess.run([PROGRAM], timeout=60).returncode, 0, "a second instance")

    def action(self, name):
        application = self.bus.get_object(SERVICE, "/com/vantor/tidewell/Background", introspect=False)
        application.ActivateAction(name, dbus.Array([], "v"), dbus.Dictionary({}, "sv"), signature="sava{sv}",
                                   dbus_interface="org.freedesktop.Application")

    def end_early(self, end, paths):
        """Ends a batch with a tool at work, which leaves its files as they are."""
        before = [p.read_bytes() for p in paths]
        self.open(self.command(*paths))
        self.wait(lambda: self.tools_at(paths[0]), "a tool at work")
        with contextlib.suppress(ProcessLookupError):
            for tool in self.tools_at(paths[0]):
                os.kill(tool, signal.SIGSTOP)  # so that it cannot end before the stop
        self.history.clear()
        end()
        self.wait(lambda: self.history, "the notification")
        self.assertEqual([tool for path in paths for tool in self.tools_at(path)], [])
        self.assertEqual([p.read_bytes() for p in paths], before)
        self.assertEqual([(i["outcome"], i["error"]) for i in self.latest()],
                         [("failed", "压缩被中断，原图未改动")] * len(paths))
        self.expect_nothing_left_behind()

    def test_sigterm_ends_a_batch_early(self):
        service = self.start()
        self.end_early(service.terminate, [self.picture("a.jpg", 1500)])
        self.expect_end(service)

    def test_stop_ends_batches_and_the_service_stays(self):
        service = self.start()
        paths = [self.picture(name, 1500) for name in ("a.jpg", "bb.jpg", "ccc.jpg", "dddd.jpg")]
        for _ in range(2):
            self.end_early(lambda: self.action("stop"), paths)
        with self.all_slots_taken():
            self.open(paths[0].as_uri())
            self.open(paths[1].as_uri())
            self.wait(lambda: len(self.titles) >= 6, "two batches")
            self.history.clear()
            self.action("stop")
            self.wait(lambda: len(self.history) == 2, "the end of both")
        self.open(self.command(paths[0]))
        self.action("start")  # no action of ours
        self.wait(lambda: len(self.history) == 3, "the end of a batch that nobody stopped")
        self.assertEqual([i["outcome"] for i in self.latest()], ["replaced"])
        self.assertIsNone(service.poll())

    def test_sigterm_does_not_wait_for_other_processes(self):
        service = self.start()
        with self.all_slots_taken():
            self.open(self.picture("a.jpg").as_uri())
            self.wait(lambda: self.titles, "the batch")
            service.terminate()
            self.expect_end(service)


class Idle(Session):
    def plant(self, age):
        """A committed record with its backup, as old as given."""
        session = self.support / "Undo" / str(uuid.uuid4()).upper()
        session.mkdir(parents=True)
        name = str(uuid.uuid4()).upper()
        record = dict(id=name, sessionID=session.name, createdAt=time.time() - 978307200 - age,
                      originalPath="/somewhere/a.jpg", backupName=name + ".jpg", originalBytes=1, replacementBytes=1,
                      replacementHash="0", state="committed")
        (session / (name + ".jpg")).write_text("x")
        (session / (name + ".json")).write_text(json.dumps(record))
        return session / (name + ".jpg")

    def test_stays_for_backups_and_leaves_after_them(self):
        # The one bus is the system's, too.
        login = subprocess.Popen([sys.executable, "-m", "dbusmock", "org.freedesktop.login1", "/org/freedesktop/login1",
                                  "org.freedesktop.login1.Manager"], stdout=subprocess.DEVNULL)
        self.addCleanup(login.wait)
        self.addCleanup(login.terminate)
        self.wait(lambda: self.bus.name_has_owner("org.freedesktop.login1"), "the login manager")
        manager = self.bus.get_object("org.freedesktop.login1", "/org/freedesktop/login1")
        sleeping = lambda value: manager.EmitSignal("", "PrepareForSleep", "b", [value],
                                                    dbus_interface="org.freedesktop.DBus.Mock")
        started = time.monotonic()
        waiting = self.plant(14400 - 20)
        overdue = self.plant(14400)
        service = self.start()
        undo_changes = lambda: subprocess.run(["gdbus", "emit", "--session", "--object-path", "/com/vantor/tidewell",
                                               "--signal", "com.vantor.tidewell.undoDidChange"], check=True)
        for count, cause in enumerate((lambda: None, undo_changes, lambda: sleeping(False)), 1):
            cause()
            self.wait(lambda: len(self.history) == count, f"pass {count}")
            self.assertFalse(overdue.exists())
            overdue = self.plant(20000)
            sleeping(True)
        time.sleep(0.5)
        self.assertTrue(overdue.exists())
        shutil.rmtree(overdue.parent)

        self.wait(lambda: len(self.history) == 4, "the expiry of the last backup")
        expired = time.monotonic()
        self.assertGreater(expired - started, 19)
        self.assertFalse(waiting.exists())
        self.assertIsNone(service.poll())
        self.expect_end(service)
        self.assertGreater(time.monotonic() - expired, 11.5)
        self.assertEqual(len(self.history), 4)


class Activation(Session):
    """The bus of this group knows an installed tree, whose prefix is a name that needs quoting."""

    prefix = pathlib.Path(os.environ["HOME"]) / "a $pre%u fix"

    def service_id(self):
        return self.bus.get_object("org.freedesktop.DBus", "/").GetConnectionUnixProcessID(SERVICE)

    def test_a_request_starts_the_service(self):
        calls = [lambda path: self.open(self.command(path)),
                 lambda path: subprocess.run(["gapplication", "launch", SERVICE, path], check=True)]
        for count, call in enumerate(calls, 1):
            self.assertFalse(self.bus.name_has_owner(SERVICE))
            path = self.picture("a" * count + ".jpg")
            call(path)
            process = self.service_id()
            self.assertEqual(os.readlink(f"/proc/{process}/exe"), str(self.prefix / "bin/TidewellBackground"))
            self.wait(lambda: len(self.history) == count, "the end of the batch")
            self.assertEqual([(i["path"], i["outcome"]) for i in self.latest()], [(str(path), "replaced")])
            os.kill(process, signal.SIGTERM)
            self.wait(lambda: not self.bus.name_has_owner(SERVICE), "the end of the service")

    def test_what_is_installed_is_valid(self):
        share = self.prefix / "share"
        desktop, window = (share / f"applications/{name}.desktop" for name in (SERVICE, WINDOW))
        windows = [window] if (self.prefix / "bin/tidewell-desktop").exists() else []  # it may be left out
        for check in (["desktop-file-validate", desktop, *windows],
                      *(["appstreamcli", "validate", "--no-net", "--strict", *share.glob("metainfo/*")] for _ in windows),
                      ["systemd-analyze", "verify", "--user", share / "systemd/user/tidewell-background.service"]):
            done = subprocess.run(check, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            said = "" if check[0] == "appstreamcli" else done.stdout  # it praises what is valid
            self.assertEqual((done.returncode, said), (0, ""), (check, done.stdout))
        self.assertIn("Exec=gapplication launch " + SERVICE, desktop.read_text())
        self.assertNotIn("image/", desktop.read_text(), "a double click would compress")
        for file in windows:
            self.assertIn("image/heic;", file.read_text())
        for size in ("scalable", "48x48"):
            self.assertEqual(len(list((share / f"icons/hicolor/{size}/apps").iterdir())), 1 + len(windows))


def main():
    """Runs a group in a folder of its own, on a bus of its own that is the system's bus as well."""
    if not (BUILD / "lib/tidewell/tools/cjpegli").exists():
        print("no tools in", BUILD)
        return 1 if os.environ.get("TIDEWELL_REQUIRE_TOOLS") else SKIPPED
    with tempfile.TemporaryDirectory(prefix="tidewell-session-") as folder:
        places = {"XDG_DATA_HOME": "data", "XDG_CONFIG_HOME": "config", "XDG_STATE_HOME": "state",
                  "XDG_RUNTIME_DIR": "run", "TMPDIR": "tmp"}
        environment = dict(os.environ, HOME=folder, TIDEWELL_SESSION="1",
                           XDG_DATA_DIRS=f"{folder}/a $pre%u fix/share:/usr/share")
        for variable, name in places.items():
            os.mkdir(f"{folder}/{name}", 0o700)
            environment[variable] = f"{folder}/{name}"
        if sys.argv[2] == "Activation":
            subprocess.run(["cmake", "--install", BUILD, "--prefix", f"{folder}/a $pre%u fix"], check=True,
                           stdout=subprocess.DEVNULL)
        return subprocess.run(["dbus-run-session", "--", "sh", "-c",
                               'DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SESSION_BUS_ADDRESS exec "$0" "$@"', sys.executable, "-B",
                               *sys.argv], env=environment).returncode


if __name__ == "__main__":
    if "TIDEWELL_SESSION" not in os.environ:
        sys.exit(main())
    unittest.main(argv=sys.argv[1:], verbosity=2)
