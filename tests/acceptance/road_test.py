#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Real pictures go through the built program with the real tools; Pillow, which shares no code with us, judges.

    road_test.py PROGRAM [unittest options]

The program's tools must lie in ../lib/tidewell/tools. Without them the tests are skipped, or fail when
TIDEWELL_REQUIRE_TOOLS is set.
"""

import base64
import functools
import hashlib
import io
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy
from PIL import Image, ImageCms, ImageSequence

import images

PROGRAM = pathlib.Path(sys.argv.pop(1)).resolve()
TOOLS = PROGRAM.parent.parent / "lib/tidewell/tools"


def sha256(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def as_srgb(image):
    """What a person sees: the pixels converted from the embedded profile or gamma, over grey where transparent."""
    if image.mode.startswith("I"):  # Pillow would clip 16 bits, not scale them
        image = Image.fromarray((numpy.asarray(image) >> 8).astype("uint8"))
    alpha = image.convert("RGBA").getchannel("A")
    colors = image.convert("RGB")
    if profile := image.info.get("icc_profile"):
        source = ImageCms.ImageCmsProfile(io.BytesIO(profile))
        colors = ImageCms.profileToProfile(colors, source, ImageCms.createProfile("sRGB"), renderingIntent=1)
    elif gamma := image.info.get("gamma"):
        light = (numpy.asarray(colors) / 255) ** (1 / gamma)
        encoded = numpy.where(light <= 0.0031308, 12.92 * light, 1.055 * light ** (1 / 2.4) - 0.055)
        colors = Image.fromarray((encoded * 255 + 0.5).astype("uint8"))
    grey = Image.new("RGB", image.size, (128, 128, 128))
    return numpy.asarray(Image.composite(colors, grey, alpha)).astype(float)


def patch_colors(data, tagged=True):
    """The patches as CIE Lab, by what the file says of its colours; judged by NumPy alone."""
    image = Image.open(io.BytesIO(data))
    chunks = dict(images.png_chunks(data)) if image.format == "PNG" else {}
    matrix, curve = images.SRGB_PRIMARIES, images.srgb_curve
    if not tagged:
        pass
    elif b"cICP" in chunks:
        matrix = {1: images.SRGB_PRIMARIES, 12: images.P3_PRIMARIES}[chunks[b"cICP"][0]]
    elif profile := image.info.get("icc_profile"):
        matrix, curve = images.profile_colors(profile)
    elif b"sRGB" not in chunks and (gamma := image.info.get("gamma")):
        curve = lambda values: values ** (1 / gamma)  # noqa: E731
    return images.lab(images.patches_of(numpy.asarray(image.convert("RGB")).astype(float)), matrix, curve)


def distance(a, b):
    """Of the two patches that differ most."""
    return numpy.sqrt(((a - b) ** 2).sum(1)).max()


def frames_of(gif):
    """Every frame as displayed, how long each, and the loop count."""
    loop = gif.info.get("loop")
    frames = [(numpy.asarray(f.convert("RGBA")), f.info.get("duration", 0)) for f in ImageSequence.Iterator(gif)]
    return [pixels for pixels, _ in frames], [delay for _, delay in frames], loop


class Road(unittest.TestCase):
    def setUp(self):
        self.need((TOOLS / "cjpegli").exists(), f"tools in {TOOLS}")
        holder = tempfile.TemporaryDirectory(prefix="tidewell-acceptance-")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.pictures = self.folder / "pictures"
        for name in ("pictures", "tmp", "data"):
            (self.folder / name).mkdir()

    def need(self, there, what):
        if not there:
            (self.fail if os.environ.get("TIDEWELL_REQUIRE_TOOLS") else self.skipTest)(f"no {what}")

    def compress(self, *paths, processes=1):
        """Runs one batch, in each of the processes at once; returns the items of each, or of the one. Nothing may be
        left in the temporary and working folders."""
        environment = dict(os.environ, XDG_DATA_HOME=str(self.folder / "data"),
                           XDG_STATE_HOME=str(self.folder / "state"), TMPDIR=str(self.folder / "tmp"))
        runs = [subprocess.Popen([PROGRAM, "--compress", *map(str, paths)], env=environment, stdout=subprocess.PIPE)
                for _ in range(processes)]
        items = [json.loads(run.communicate(timeout=600)[0])["items"] for run in runs]
        for run, ended in zip(runs, items):
            self.assertEqual(run.returncode, 1 if any(item["outcome"] == "failed" for item in ended) else 0)
        self.assertEqual(list((self.folder / "tmp").iterdir()), [])
        self.assertEqual([p.name for p in self.pictures.iterdir() if p.name.startswith(".")], [])
        return items if processes > 1 else items[0]

    def check_refused(self, cases):
        """Content, or nothing for what is there already, and message by name. Nothing changes, nothing is left."""
        for name, (content, _) in cases.items():
            if content is not None:
                (self.pictures / name).write_bytes(content)
        names = sorted(self.pictures.iterdir())
        items = self.compress(*(self.pictures / name for name in cases))
        for item, (name, (content, message)) in zip(items, cases.items()):
            self.assertEqual((item["outcome"], item.get("error")), ("failed", message), name)
            self.assertTrue(content is None or (self.pictures / name).read_bytes() == content, name)
        self.assertEqual(sorted(self.pictures.iterdir()), names)
        self.assertEqual(list((self.folder / "data/Tidewell/Undo").glob("*")), [])

    def json_files(self, pattern, key):
        files = (json.loads(path.read_text()) for path in (self.folder / "data/Tidewell").glob(pattern))
        return {content[key]: content for content in files}

    def records(self, key="originalPath"):
        return self.json_files("Undo/*/*.json", key)

    def reports(self):
        return self.json_files("CompressionDiagnostics/*.json", "source")

    def check_saved(self, path, before, new):
        """The record names the bytes of the new file, and its backup holds the original's; returns the backup."""
        record = self.records()[str(path)]
        backup = self.folder / "data/Tidewell/Undo" / record["sessionID"] / record["backupName"]
        self.assertEqual((record["state"], record["replacementHash"]), ("committed", sha256(new)))
        self.assertEqual(record["originalHash"], hashlib.sha256(before).hexdigest())
        self.assertEqual(record.get("convertedPath"), None if new == path else str(new))
        self.assertEqual(backup.read_bytes(), before)
        return backup

    def check_replaced(self, path, before, report):
        self.assertLess(path.stat().st_size, len(before))
        accepted = [a for a in report["attempts"] if a["status"] == "accepted"]
        self.assertIn(report["selectedEncoder"], [a["encoder"] for a in accepted])
        self.assertEqual(min(a["bytes"] for a in accepted), path.stat().st_size)

    def check_kinds(self, files, limit, judge, shown=None, may_stay=()):
        """Compresses the files, content by name, and checks what all kinds have in common. What is to be seen, by the
        file or by `shown`, stays within the limit. `judge` gets name, pictures before and after, report, backup and
        path of each new file; returns how many there are."""
        for name, data in files.items():
            (self.pictures / name).write_bytes(data)
            os.chmod(self.pictures / name, 0o640)
        items = self.compress(*(self.pictures / name for name in files))
        reports, changed = self.reports(), 0
        self.assertEqual(len(reports), len(files))  # those of nested runs are gone
        for item, (name, data) in zip(items, files.items()):
            path = new = self.pictures / name
            with self.subTest(name):
                report = reports[str(path)]
                self.assertEqual((item["path"], item["outcome"]), (str(path), report["outcome"]), item)
                self.assertTrue(report["attempts"] or shown)
                if item["outcome"] != "replaced":
                    self.assertEqual(path.read_bytes(), data)
                if item["outcome"] == "skipped":
                    self.assertIn(name, may_stay)
                    continue
                changed += 1
                if shown:
                    self.assertEqual(item["outcome"], "converted", item)
                    new = path.with_suffix(".png")
                else:
                    self.check_replaced(path, data, report)
                self.assertEqual(item["finalBytes"], new.stat().st_size)
                self.assertEqual(new.stat().st_mode & 0o777, 0o640)
                backup = self.check_saved(path, data, new)
                before = shown[name] if shown else Image.open(io.BytesIO(data))
                after = Image.open(io.BytesIO(new.read_bytes()))
                self.assertEqual(after.size, before.size)
                self.assertEqual(after.getexif().get(0x0112, 1), before.getexif().get(0x0112, 1))
                self.assertLess(numpy.abs(as_srgb(before) - as_srgb(after)).mean(), limit)
                if before.mode == "RGBA":
                    alpha = [numpy.asarray(i.convert("RGBA"))[..., 3].astype(int) for i in (before, after)]
                    self.assertLess(numpy.abs(alpha[0] - alpha[1]).mean(), 2)
                judge(name, before, after, report, backup, new)
        return changed

    def check_colors(self, backup, path, limit=4):
        """The patches show as they did. Another gamut would move them three times as far."""
        before = backup.read_bytes()
        self.assertLess(distance(patch_colors(before), patch_colors(path.read_bytes())), limit)
        if Image.open(backup).info.get("icc_profile"):
            self.assertGreater(distance(patch_colors(before), patch_colors(before, tagged=False)), 3 * limit)


class JPEG(Road):
    def test_kinds(self):
        pixels = Image.fromarray(images.with_patches(images.photo(900, 600)))
        exif = Image.Exif()
        exif[0x0112] = 6
        exif[0x010F] = "Camera"
        saved = functools.partial(images.saved, pixels, "JPEG")
        files = {
            "plain.jpg": saved(quality=92),
            "turned.JPG": saved(quality=92, exif=exif),
            "p3.jpeg": saved(quality=92, icc_profile=images.DISPLAY_P3),
            "named.jpg": saved(quality=92, icc_profile=images.P3_UNDER_ANOTHER_NAME),
            "progressive.jpg": saved(quality=95, progressive=True),
            "fine.jpg": saved(quality=99, subsampling=0),
            "grey.jpg": images.saved(pixels.convert("L"), "JPEG", quality=92),
        }

        def judge(name, before, after, report, backup, path):
            self.assertEqual(bool(after.info.get("icc_profile")), bool(before.info.get("icc_profile")))
            if before.mode == "RGB":
                self.check_colors(backup, path)
            # The metric, run by hand on backup and replacement, gives the score on record.
            accepted = next(a for a in report["attempts"] if a["encoder"] == report["selectedEncoder"])
            by_hand = subprocess.run([TOOLS / "ssimulacra2", backup, path], stdout=subprocess.PIPE, check=True)
            self.assertAlmostEqual(float(by_hand.stdout), accepted["score"], places=4)

        self.check_kinds(files, 4, judge)


class PNG(Road):
    def test_kinds(self):
        exif = Image.Exif()
        exif[0x0112] = 6
        photo = Image.fromarray(images.with_patches(images.photo(640, 480)))
        saved = functools.partial(images.saved, kind="PNG", compress_level=1)
        grey16 = (images.photo(300, 200)[..., 0].astype("uint16") * 257) + numpy.arange(300, dtype="uint16")
        plain = saved(photo)
        srgb = images.with_chunk(plain, b"sRGB", b"\0")
        files = {
            "photo.png": plain,
            "screenshot.png": saved(images.screenshot(1000, 600)),
            "icon.png": saved(images.icon(256)),
            "palette.png": saved(photo.quantize(64)),
            "grey16.png": saved(grey16),
            "interlaced.png": images.raw_png(images.photo(320, 240), interlaced=True),
            "turned.png": saved(photo, exif=exif),
            "p3.png": saved(photo, icc_profile=images.DISPLAY_P3),
            "named.png": saved(photo, icc_profile=images.P3_UNDER_ANOTHER_NAME),
            "odd.png": saved(photo, icc_profile=images.ODD_P3),
            "code-points.png": images.with_chunk(srgb, b"cICP", bytes((12, 13, 0, 1))),
            "adobe.png": saved(photo, icc_profile=images.ADOBE_RGB),
            "p3-few-colours.png": saved(images.screenshot(400, 300), icc_profile=images.DISPLAY_P3),
            "srgb.png": srgb,
            "gamma.png": images.with_chunk(plain, b"gAMA", (45455).to_bytes(4, "big")),
            "linear.png": images.with_chunk(plain, b"gAMA", (100000).to_bytes(4, "big")),
            "one-bit.png": saved(Image.fromarray(images.screenshot(600, 400)).convert("1")),
        }

        def judge(name, before, after, report, backup, path):
            if report["selectedEncoder"] == "OxiPNG":
                wide = "I" if before.mode.startswith("I") else "RGBA"
                self.assertTrue(numpy.array_equal(numpy.asarray(before.convert(wide)), numpy.asarray(after.convert(wide))))
            if name == "p3-few-colours.png":  # the quantiser has a colour engine: the colours become those of sRGB
                self.assertRegex(report["selectedEncoder"], "^pngquant")
                self.assertEqual(("srgb" in after.info, "icc_profile" in after.info), (True, False))
            if before.size == photo.size and before.mode == "RGB":
                self.check_colors(backup, path)

        self.check_kinds(files, 6, judge, may_stay=("one-bit.png", "palette.png", "grey16.png"))


class GIF(Road):
    def test_kinds(self):
        make = images.moving_dots
        saved = images.saved_gif
        photos = [Image.fromarray(images.photo(200, 150, seed)).quantize(256) for seed in (5, 6, 7)]
        clear = functools.partial(saved, duration=60, loop=0, transparency=0)
        files = {
            "animated.gif": saved(make(240, 180, 12), duration=80, loop=0),
            "delays.gif": saved(make(160, 120, 5), duration=[20, 50, 100, 1000, 0], loop=3),
            "once.gif": saved(make(160, 120, 4), duration=100),
            "transparent.gif": clear(make(200, 200, 8, transparent=True)),
            "previous.gif": clear(make(120, 120, 6, transparent=True), disposal=3),
            "keep.gif": saved(make(200, 150, 6), duration=60, loop=7, disposal=1),
            "single.gif": saved(make(300, 300, 1), duration=0),
            "photo.gif": saved(photos, duration=200, loop=0),
        }

        def judge(name, before, after, report, backup, path):
            old, new = frames_of(before), frames_of(after)
            self.assertEqual((len(new[0]), new[1:]), (len(old[0]), old[1:]))
            for a, b in zip(old[0], new[0]):
                self.assertTrue(numpy.array_equal(a[..., 3], b[..., 3]))
                visible = a[..., 3] > 0
                if report["selectedEncoder"] == "Gifsicle -O2":
                    self.assertTrue(numpy.array_equal(a[visible], b[visible]))
                else:
                    self.assertLess(numpy.abs(a[visible].astype(float) - b[visible]).mean(), 12)

        self.assertGreaterEqual(self.check_kinds(files, 12, judge, may_stay=files), 4)


class Batch(Road):
    def test_refusals_change_nothing(self):
        jpeg, png = (images.saved(images.photo(400, 300), kind) for kind in ("JPEG", "PNG"))
        sof = jpeg.index(b"\xff\xc0")
        gif = images.saved_gif(images.moving_dots(100, 80, 3), duration=100)
        (self.pictures / "real.jpg").write_bytes(jpeg)
        (self.pictures / "link.jpg").symlink_to("real.jpg")
        (self.pictures / "folder.jpg").mkdir()
        undecodable, not_plain = "图片无法解码", "请选择普通图片文件"
        self.check_refused({
            "cut.jpg": (jpeg[: len(jpeg) // 2], undecodable),
            "png.jpg": (png, "文件格式与扩展名不一致"),
            "huge.jpg": (jpeg[: sof + 5] + (60000).to_bytes(2, "big") * 2 + jpeg[sof + 9 :], undecodable),
            "link.jpg": (None, not_plain),
            "folder.jpg": (None, not_plain),
            "apng.png": (images.with_chunk(png, b"acTL", bytes((0, 0, 0, 2, 0, 0, 0, 0))), "暂不支持动态 PNG（APNG），已保留原图"),
            "cut.png": (png[:-20], undecodable),
            "damaged.png": (png[:200] + bytes(40) + png[240:], undecodable),
            "cut.gif": (gif[: len(gif) // 4], undecodable),
            "png.gif": (b"\x89PNG\r\n\x1a\n", undecodable),
        })

    def test_two_processes_share_one_directory(self):
        paths = [self.pictures / f"photo-{i}.jpg" for i in range(4)]
        for i, path in enumerate(paths):
            path.write_bytes(images.saved(images.photo(500, 400, i), "JPEG", quality=93))
        before = {sha256(path) for path in paths}
        for path, *items in zip(paths, *self.compress(*paths, processes=2)):
            outcomes = sorted(item["outcome"] for item in items)
            self.assertIn(outcomes, (["replaced", "skipped"], ["replaced", "replaced"]))
            Image.open(path).load()
        self.assertLessEqual(before, set(self.records("originalHash")))

    def test_names_are_bytes(self):
        name = os.fsencode(self.pictures) + b"/\xff\xfe photo.jpg"
        with open(name, "wb") as file:
            file.write(images.saved(images.photo(400, 300), "JPEG", quality=93))
        (item,) = self.compress(os.fsdecode(name))
        self.assertEqual(item["outcome"], "replaced")
        (record,) = self.records().values()
        self.assertEqual(base64.b64decode(record["originalPathBase64"]), name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
