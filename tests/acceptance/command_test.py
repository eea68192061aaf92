#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""The command as people and scripts use it, with the real tools.

    command_test.py PROGRAM [unittest options]

Skipped without the tools in ../lib/tidewell/tools, or failed when TIDEWELL_REQUIRE_TOOLS is set.
"""

import base64
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

import images
import PIL.Image
import PIL.PngImagePlugin

PROGRAM = pathlib.Path(sys.argv.pop(1)).resolve()
TOOLS = PROGRAM.parent.parent / "lib/tidewell/tools"


def tree(folder):
    """What lies there: paths and bytes."""
    return {path.relative_to(folder): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


class Command(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not (TOOLS / "cjpegli").exists():
            if os.environ.get("TIDEWELL_REQUIRE_TOOLS"):
                raise AssertionError("no tools")
            raise unittest.SkipTest("no tools")
        cls.jpeg = images.saved(images.photo(320, 240), "JPEG", quality=97)

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = pathlib.Path(folder.name)
        self.photos = self.home / "照片"
        self.photos.mkdir()
        self.environment = {**os.environ, "HOME": folder.name, "XDG_DATA_HOME": str(self.home / "data"),
                            "XDG_STATE_HOME": str(self.home / "state"), "LC_ALL": "C.UTF-8", "TERM": "xterm"}

    def add(self, name, data=None):
        path = os.path.join(os.fsencode(self.photos), os.fsencode(name))
        with open(path, "wb") as file:
            file.write(data or self.jpeg)
        return path

    def run_command(self, *arguments, **more):
        more = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "env": self.environment, **more}
        return subprocess.run([PROGRAM, *arguments], timeout=300, **more)

    def lines(self, *arguments, status=0):
        result = self.run_command(*arguments)
        self.assertEqual(result.returncode, status, result.stderr.decode())
        return [json.loads(line) for line in result.stdout.splitlines()]

    def test_lines_for_scripts(self):
        self.add(b"\xff.jpg")
        self.add("b.jpg", images.saved(images.photo(8, 8), "JPEG", quality=1, optimize=True))
        self.add("c.txt", b"text")
        self.add("d.jpg", b"no picture")
        found = self.lines("compress", "--json", self.photos, self.photos / "c.txt", self.home / "none", status=1)
        files = {line.get("path_b64") or pathlib.Path(line["path"]).name: line for line in found if line["type"] == "file"}
        odd = files[base64.b64encode(os.fsencode(self.photos) + b"/\xff.jpg").decode()]
        self.assertLessEqual({"path", "outcome", "originalBytes", "finalBytes", "score", "encoder", "id"}, odd.keys())
        self.assertEqual(odd["outcome"], "replaced")
        self.assertEqual(files["b.jpg"]["reason"], "not_smaller")
        self.assertEqual(files["c.txt"]["reason"], "unsupported")
        self.assertEqual(files["d.jpg"]["error"]["code"], "invalid_image")
        self.assertEqual(files["none"]["error"]["code"], "ENOENT")
        summary = found[-1]
        self.assertEqual([summary[key] for key in ("type", "files", "replaced", "skipped", "failed", "restorable")],
                         ["summary", 5, 1, 2, 2, 1])
        self.assertEqual(summary["savedBytes"], odd["originalBytes"] - odd["finalBytes"])
        again = self.lines("compress", "--json", self.photos, status=1)
        self.assertEqual([line.get("reason") for line in again if line["type"] == "file"],
                         ["already_compressed", None, "already_compressed"])

    def test_strip(self):
        """Nothing is left of the secret in any kind, whether files are new, known, or cannot be made smaller."""
        picture = PIL.Image.fromarray(images.photo(160, 120))
        exif = PIL.Image.Exif()
        exif[0x0112], exif[0x010E] = 6, "SECRET"  # orientation, description
        exif.get_ifd(0x8825)[0x1D] = "SECRET:1"  # the date of a position
        text = PIL.PngImagePlugin.PngInfo()
        text.add_itxt("XML:com.adobe.xmp", "<SECRET/>")
        text.add_text("Comment", "SECRET")
        few = picture.quantize(16)
        for name, data in {
            "a.jpg": images.saved(picture, "JPEG", quality=97, exif=exif, comment=b"SECRET"),
            "b.jpg": images.saved(picture, "JPEG", quality=1, optimize=True, exif=exif),
            "a.png": images.saved(picture, "PNG", exif=exif, pnginfo=text),
            "a.gif": images.saved(few, "GIF", save_all=True, append_images=[few.rotate(90)], comment=b"SECRET"),
        }.items():
            self.add(name, data)

        def seen(folder):
            shown = {}
            for path in sorted(folder.iterdir()):
                with PIL.Image.open(path) as image:
                    frames = []
                    for frame in range(getattr(image, "n_frames", 1)):
                        image.seek(frame)
                        frames.append(image.convert("RGBA").tobytes())
                    shown[path.name] = (frames, image.getexif().get(0x0112))
            return shown

        def outcomes(*arguments):
            found = self.lines("compress", "--json", *arguments, self.photos)
            return {pathlib.Path(line["path"]).name: line for line in found if line["type"] == "file"}

        def secrets(folder):
            return {path.name for path in folder.iterdir() if b"SECRET" in path.read_bytes()}

        everything = set(seen(self.photos))
        self.assertEqual(secrets(self.photos), everything)
        outcomes("--strip", "--output", self.home / "new")
        self.assertEqual(secrets(self.home / "new" / self.photos.name), set())
        self.environment["XDG_STATE_HOME"] = str(self.home / "other")  # which remembers none of that
        outcomes()  # keeps it, and remembers what it has made
        self.assertEqual(secrets(self.photos), everything)
        known = seen(self.photos)
        outcomes("--strip", "--output", self.home / "known")
        self.assertEqual({name: line.get("encoder") for name, line in outcomes("--strip").items()},
                         dict.fromkeys(everything, "strip"))
        for folder in (self.photos, self.home / "known" / self.photos.name):
            self.assertEqual(secrets(folder), set())
            self.assertEqual(seen(folder), known)
        self.assertEqual([shown[1] for shown in known.values()], [None, 6, 6, 6])
        self.assertIn("only its metadata removed", self.run_command("explain", self.photos / "a.png").stdout.decode())
        again = {line.get("reason") for line in outcomes("--strip").values()}
        self.assertEqual(again, {"already_compressed"})

    def test_people(self):
        self.assertEqual(self.run_command("compress", self.photos).returncode, 0, "an empty folder is nothing to do")
        self.add("a.jpg")
        before = tree(self.photos)
        rehearsal = self.run_command("compress", "-nv", self.photos)
        self.assertEqual(tree(self.home), {self.photos.name / path: data for path, data in before.items()} | {
            path: data for path, data in tree(self.home).items() if path.parts[0] != self.photos.name})
        self.assertIn("nothing was changed", rehearsal.stdout.decode())
        self.environment |= {"LC_ALL": "zh_CN.UTF-8"}
        for place in ({}, {"LOCPATH": "/nowhere"}):  # as on a system without this locale, and without any
            told = self.run_command("compress", "-n", self.photos, env=self.environment | place).stdout.decode()
            self.assertRegex(told, "^1 个文件，可节省 .*；没有改动任何文件")
        result = self.run_command("compress", "--color=always", self.photos)
        self.assertRegex(result.stdout.decode(), r"^1 个文件，节省 \x1b\[1m[\d.]+ kB\x1b\[0m；(\d{4}-\d\d-\d\d )?\d\d:\d\d 之前可用")
        self.assertEqual(result.stderr, b"", "progress is for terminals")

    def test_data_beside_the_picture_stays(self):
        thermal = b"".join(b"\xff\xe3\xff\xff" + bytes([part]) * 65533 for part in range(3))
        png = images.saved(images.photo(320, 240), "PNG")
        page, layers = images.chunk(b"vpAg", bytes(9)), images.chunk(b"mkBF", bytes(2000))
        left = {"zip.jpg": self.jpeg + b"PK\3\4" + bytes(range(256)) * 8, "tail.png": png + b"tail" * 5000,
                "layers.png": png[:-12] + layers + png[-12:]}
        made = {"thermal.jpg": self.jpeg[:2] + thermal + self.jpeg[2:], "page.png": png[:33] + page + png[33:]}
        for name, data in (left | made).items():
            self.add(name, data)
        found = self.lines("compress", "--json", self.photos)
        files = {pathlib.Path(line["path"]).name: line for line in found if line["type"] == "file"}
        self.assertEqual({name: files[name].get("reason") for name in left}, dict.fromkeys(left, "embedded_media"))
        self.assertEqual({name: (self.photos / name).read_bytes() for name in left}, left)
        for name, data in (("thermal.jpg", thermal), ("page.png", page)):
            self.assertEqual(files[name]["outcome"], "replaced")
            self.assertIn(data, (self.photos / name).read_bytes())
            self.assertRegex(self.run_command("compare", self.photos / name).stdout.decode(), "went +nothing\n")
        self.lines("compress", "--json", "--strip", self.photos)
        for name in ("zip.jpg", "layers.png"):
            self.assertRegex(self.run_command("compare", self.photos / name).stdout.decode(), "went +other data\n")

    def test_backups_among_the_photos_stay(self):
        self.environment["XDG_DATA_HOME"] = str(self.photos / ".data")
        self.add("a.jpg")
        self.lines("compress", "--json", self.photos)
        backups = tree(self.photos / ".data" / "Tidewell" / "Undo")
        backup = next(self.photos / ".data" / "Tidewell" / "Undo" / path for path in backups if path.suffix == ".jpg")
        found = self.lines("compress", "--json", "--again", "--hidden", self.photos, backup, status=1)
        files = {pathlib.Path(line["path"]).name: line for line in found if line["type"] == "file"}
        self.assertEqual(files.keys(), {"a.jpg", backup.name})
        self.assertEqual(files[backup.name]["error"]["code"], "EPERM")
        self.assertEqual(self.run_command("restore", self.photos).returncode, 0)
        self.assertEqual((self.photos / "a.jpg").read_bytes(), self.jpeg)

    def test_output_that_cannot_be_written(self):
        for name in "ab":
            self.add(name + ".jpg")
        with open("/dev/full", "wb") as full:
            result = self.run_command("compress", "-v", self.photos / "a.jpg", stdout=full)
        self.assertEqual((result.returncode, b"the disk is full" in result.stderr), (1, True))
        for last in (False, True):
            read, write = os.pipe()
            os.close(read)
            with open(write, "wb") as closed:
                result = self.run_command("compress", "-v", self.photos / "b.jpg" if last else self.photos, stdout=closed)
            self.assertEqual((result.returncode, result.stderr), (128 + signal.SIGPIPE, b""), "ends with its reader")
            self.assertEqual(tree(self.photos)[pathlib.Path("b.jpg")] == self.jpeg, not last)

    def test_terminal_and_stop(self):
        large = images.saved(images.photo(1600, 1200), "JPEG", quality=97)
        for number in range(20):
            self.add(f"{number}.jpg", large + bytes([number]))
        before = tree(self.photos)
        master, slave = pty.openpty()
        process = subprocess.Popen([PROGRAM, "compress", self.photos], stdout=subprocess.PIPE, stderr=slave,
                                   env=self.environment,  # whoever was started with "&" has inherited to ignore it
                                   preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
        os.close(slave)
        shown = b""
        while not re.search(rb"[1-9]\d* of 20 files", shown):
            shown += os.read(master, 4096)
        process.send_signal(signal.SIGINT)
        output = process.communicate(timeout=60)[0].decode()
        os.close(master)
        self.assertEqual(process.returncode, 130)
        self.assertRegex(output, r"^\d+ files?, .* saved; `tidewell restore latest`")
        after = tree(self.photos)
        self.assertEqual(after.keys(), before.keys(), "no working directory stays")
        self.assertGreater(sum(after[path] == before[path] for path in before), 0)

    @unittest.skipUnless(shutil.which("parallel"), "GNU parallel is not installed")
    def test_two_workers_on_one_tree(self):
        small = images.saved(images.photo(120, 90), "JPEG", quality=97)
        for number in range(24):
            self.add(f"{number} x.jpg", small + bytes([number]))
        script = 'find "$1" -name "*.jpg" -print0 | ' \
                 'parallel --will-cite --null --jobs 2 --pipe -N 6 "$2" compress --json --files0-from -'
        result = subprocess.run(["sh", "-c", script, "sh", self.photos, PROGRAM], stdout=subprocess.PIPE,
                                env=self.environment, timeout=300)
        self.assertEqual(result.returncode, 0)
        lines = [json.loads(line) for line in result.stdout.splitlines()]
        files = [line for line in lines if line["type"] == "file"]
        self.assertEqual((len({line["path"] for line in files}), len(files)), (24, 24))
        self.assertEqual({line["outcome"] for line in files}, {"replaced"})
        self.assertEqual(sum(line["restorable"] for line in lines if line["type"] == "summary"), 24)


if __name__ == "__main__":
    unittest.main()
