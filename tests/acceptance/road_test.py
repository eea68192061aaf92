#!/usr/bin/python3
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


def frames_of(path):
    """Every frame as displayed, with how long and the loop count."""
    with Image.open(path) as gif:
        loop = gif.info.get("loop")
        frames, delays = [], []
        for frame in ImageSequence.Iterator(gif):
            frames.append(numpy.asarray(frame.convert("RGBA")))
            delays.append(frame.info.get("duration", 0))
        return frames, delays, loop


class Road(unittest.TestCase):
    def setUp(self):
        if not (TOOLS / "cjpegli").exists():
            if os.environ.get("TIDEWELL_REQUIRE_TOOLS"):
                self.fail(f"no tools in {TOOLS}")
            self.skipTest(f"no tools in {TOOLS}")
        holder = tempfile.TemporaryDirectory(prefix="tidewell-acceptance-")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.pictures = self.folder / "pictures"
        self.pictures.mkdir()
        for name in ("tmp", "data"):
            (self.folder / name).mkdir()

    def compress(self, *paths, processes=1):
        """Runs one batch, in each of the processes at once; returns the items of each, or of the one. Nothing may be
        left in the temporary and working folders."""
        environment = dict(os.environ, XDG_DATA_HOME=str(self.folder / "data"), TMPDIR=str(self.folder / "tmp"))
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

    def check_undo(self, path, before):
        """The record of a replaced file names its bytes and its backup holds the original's."""
        record = self.records()[str(path)]
        backup = self.folder / "data/Tidewell/Undo" / record["sessionID"] / record["backupName"]
        self.assertEqual(record["state"], "committed")
        self.assertEqual(record["replacementHash"], sha256(path))
        self.assertEqual(record["originalHash"], hashlib.sha256(before).hexdigest())
        self.assertEqual(backup.read_bytes(), before)
        return backup

    def check_explained(self, path, outcome):
        report = self.reports()[str(path)]
        self.assertEqual(report["outcome"], outcome)
        self.assertTrue(report["attempts"])
        chosen = [a for a in report["attempts"] if a["status"] == "accepted"]
        if outcome == "replaced":
            self.assertIn(report["selectedEncoder"], [a["encoder"] for a in chosen])
            self.assertEqual(min(a["bytes"] for a in chosen), path.stat().st_size)
        return report

    def replaced(self, path, before):
        self.assertLess(path.stat().st_size, len(before), path.name)
        backup = self.check_undo(path, before)
        return backup, self.check_explained(path, "replaced")


    def check_colors(self, before, path, limit=4):
        """The patches show as they did. Another gamut would move them three times as far."""
        self.assertLess(distance(patch_colors(before), patch_colors(path.read_bytes())), limit)
        if Image.open(io.BytesIO(before)).info.get("icc_profile"):
            self.assertGreater(distance(patch_colors(before), patch_colors(before, tagged=False)), 3 * limit)


class JPEG(Road):
    def test_kinds(self):
        pixels = Image.fromarray(images.with_patches(images.photo(900, 600)))
        exif = Image.Exif()
        exif[0x0112] = 6
        exif[0x010F] = "Camera"
        kinds = {
            "plain.jpg": dict(quality=92),
            "turned.JPG": dict(quality=92, exif=exif),
            "p3.jpeg": dict(quality=92, icc_profile=images.DISPLAY_P3),
            "named.jpg": dict(quality=92, icc_profile=images.P3_UNDER_ANOTHER_NAME),
            "progressive.jpg": dict(quality=95, progressive=True),
            "fine.jpg": dict(quality=99, subsampling=0),
            "grey.jpg": dict(quality=92),
        }
        before = {}
        for name, options in kinds.items():
            image = pixels.convert("L") if name.startswith("grey") else pixels
            image.save(self.pictures / name, "JPEG", **options)
            os.chmod(self.pictures / name, 0o640)
            before[name] = (self.pictures / name).read_bytes()
        items = self.compress(*(self.pictures / name for name in kinds))
        for item, (name, data) in zip(items, before.items()):
            path = self.pictures / name
            with self.subTest(name):
                self.assertEqual(item["path"], str(path))
                self.assertEqual(item["outcome"], "replaced", item)
                backup, report = self.replaced(path, data)
                self.assertEqual(path.stat().st_mode & 0o777, 0o640)
                old, new = Image.open(io.BytesIO(data)), Image.open(path)
                self.assertEqual(new.size, old.size)
                self.assertEqual(new.getexif().get(0x0112, 1), old.getexif().get(0x0112, 1))
                self.assertEqual(bool(new.info.get("icc_profile")), bool(old.info.get("icc_profile")))
                self.assertLess(numpy.abs(as_srgb(old) - as_srgb(new)).mean(), 4)
                if not name.startswith("grey"):
                    self.check_colors(data, path)
                # The metric, run by hand on backup and replacement, gives the score on record.
                accepted = next(a for a in report["attempts"] if a["encoder"] == report["selectedEncoder"])
                by_hand = subprocess.run([TOOLS / "ssimulacra2", backup, path], stdout=subprocess.PIPE, check=True)
                self.assertAlmostEqual(float(by_hand.stdout), accepted["score"], places=4)


class PNG(Road):
    def kinds(self):
        exif = Image.Exif()
        exif[0x0112] = 6
        photo = Image.fromarray(images.with_patches(images.photo(640, 480)))
        saved = functools.partial(images.saved, kind="PNG", compress_level=1)
        grey16 = (images.photo(300, 200)[..., 0].astype("uint16") * 257) + numpy.arange(300, dtype="uint16")
        yield "photo.png", saved(photo)
        yield "screenshot.png", saved(images.screenshot(1000, 600))
        yield "icon.png", saved(images.icon(256))
        yield "palette.png", saved(photo.quantize(64))
        yield "grey16.png", saved(grey16)
        yield "interlaced.png", images.interlaced_png(images.photo(320, 240))
        yield "turned.png", saved(photo, exif=exif)
        yield "p3.png", saved(photo, icc_profile=images.DISPLAY_P3)
        yield "named.png", saved(photo, icc_profile=images.P3_UNDER_ANOTHER_NAME)
        yield "odd.png", saved(photo, icc_profile=images.ODD_P3)
        tagged = images.with_chunk(saved(photo), b"sRGB", b"\0")
        yield "code-points.png", images.with_chunk(tagged, b"cICP", bytes((12, 13, 0, 1)))
        yield "adobe.png", saved(photo, icc_profile=images.ADOBE_RGB)
        yield "p3-few-colours.png", saved(Image.fromarray(images.screenshot(400, 300)), icc_profile=images.DISPLAY_P3)
        yield "srgb.png", images.with_chunk(saved(photo), b"sRGB", b"\0")
        yield "gamma.png", images.with_chunk(saved(photo), b"gAMA", (45455).to_bytes(4, "big"))
        yield "linear.png", images.with_chunk(saved(photo), b"gAMA", (100000).to_bytes(4, "big"))
        yield "one-bit.png", saved(Image.fromarray(images.screenshot(600, 400)).convert("1"))

    def test_kinds(self):
        before = dict(self.kinds())
        for name, data in before.items():
            (self.pictures / name).write_bytes(data)
        items = self.compress(*(self.pictures / name for name in before))
        may_stay = {"one-bit.png", "palette.png", "grey16.png"}
        for item, (name, data) in zip(items, before.items()):
            path = self.pictures / name
            with self.subTest(name):
                self.assertIn(item["outcome"], ("replaced", "skipped"), item)
                report = self.check_explained(path, item["outcome"])
                if item["outcome"] == "skipped":
                    self.assertIn(name, may_stay)
                    self.assertEqual(path.read_bytes(), data)
                    continue
                self.replaced(path, data)
                old, new = Image.open(io.BytesIO(data)), Image.open(path)
                self.assertEqual(new.size, old.size)
                self.assertEqual(new.getexif().get(0x0112, 1), old.getexif().get(0x0112, 1))
                if report["selectedEncoder"] == "OxiPNG":
                    wide = "I" if old.mode.startswith("I") else "RGBA"
                    self.assertTrue(numpy.array_equal(numpy.asarray(old.convert(wide)), numpy.asarray(new.convert(wide))))
                self.assertLess(numpy.abs(as_srgb(old) - as_srgb(new)).mean(), 6)
                if name == "p3-few-colours.png":  # the quantiser has a colour engine: the colours become those of sRGB
                    self.assertRegex(report["selectedEncoder"], "^pngquant")
                    self.assertEqual(("srgb" in new.info, "icc_profile" in new.info), (True, False))
                if old.size == (640, 480) and old.mode == "RGB":
                    self.check_colors(data, path)
                if name == "icon.png":
                    alpha = [numpy.asarray(i.convert("RGBA"))[..., 3].astype(int) for i in (old, new)]
                    self.assertLess(numpy.abs(alpha[0] - alpha[1]).mean(), 2)


class GIF(Road):
    def test_kinds(self):
        make = images.moving_dots
        cases = {
            "animated.gif": (make(240, 180, 12), dict(durations=80, loop=0)),
            "delays.gif": (make(160, 120, 5), dict(durations=[20, 50, 100, 1000, 0], loop=3)),
            "once.gif": (make(160, 120, 4), dict(durations=100)),
            "transparent.gif": (make(200, 200, 8, transparent=True), dict(durations=60, loop=0, transparency=0)),
            "previous.gif": (make(120, 120, 6, transparent=True), dict(durations=60, loop=0, transparency=0, disposal=3)),
            "keep.gif": (make(200, 150, 6), dict(durations=60, loop=7, disposal=1)),
            "single.gif": (make(300, 300, 1), dict(durations=0)),
        }
        for name, (frames, options) in cases.items():
            images.save_gif(self.pictures / name, frames, **options)
        photo_frames = [Image.fromarray(images.photo(200, 150, seed)).quantize(256) for seed in (5, 6, 7)]
        images.save_gif(self.pictures / "photo.gif", photo_frames, 200, loop=0)
        names = [*cases, "photo.gif"]
        before = {name: (self.pictures / name).read_bytes() for name in names}
        shown = {name: frames_of(self.pictures / name) for name in names}
        items = self.compress(*(self.pictures / name for name in names))
        replaced = 0
        for item, name in zip(items, names):
            path = self.pictures / name
            with self.subTest(name):
                self.assertIn(item["outcome"], ("replaced", "skipped"), item)
                report = self.check_explained(path, item["outcome"])
                if item["outcome"] == "skipped":
                    self.assertEqual(path.read_bytes(), before[name])
                    continue
                replaced += 1
                self.replaced(path, before[name])
                old, new = shown[name], frames_of(path)
                self.assertEqual(len(new[0]), len(old[0]))
                self.assertEqual(new[1], old[1])
                self.assertEqual(new[2], old[2])
                lossless = report["selectedEncoder"] == "Gifsicle -O2"
                for a, b in zip(old[0], new[0]):
                    self.assertTrue(numpy.array_equal(a[..., 3], b[..., 3]))
                    visible = a[..., 3] > 0
                    if lossless:
                        self.assertTrue(numpy.array_equal(a[visible], b[visible]))
                    else:
                        self.assertLess(numpy.abs(a[visible].astype(float) - b[visible]).mean(), 12)
        self.assertGreaterEqual(replaced, 4)


class Batch(Road):
    def test_refusals_change_nothing(self):
        jpeg, png = (images.saved(images.photo(400, 300), kind) for kind in ("JPEG", "PNG"))
        sof = jpeg.index(b"\xff\xc0")
        huge = jpeg[: sof + 5] + (60000).to_bytes(2, "big") * 2 + jpeg[sof + 9 :]
        images.save_gif(self.folder / "whole.gif", images.moving_dots(100, 80, 3), 100)
        gif = (self.folder / "whole.gif").read_bytes()
        (self.pictures / "real.jpg").write_bytes(jpeg)
        (self.pictures / "link.jpg").symlink_to("real.jpg")
        (self.pictures / "folder.jpg").mkdir()
        undecodable, not_plain = "图片无法解码", "请选择普通图片文件"
        self.check_refused({
            "cut.jpg": (jpeg[: len(jpeg) // 2], undecodable),
            "text.jpg": (b"not an image", undecodable),
            "empty.jpg": (b"", undecodable),
            "png.jpg": (images.interlaced_png(images.photo(32, 32)), "文件格式与扩展名不一致"),
            "huge.jpg": (huge, undecodable),
            "link.jpg": (None, not_plain),
            "folder.jpg": (None, not_plain),
            "apng.png": (images.with_chunk(png, b"acTL", bytes((0, 0, 0, 2, 0, 0, 0, 0))), "暂不支持动态 PNG（APNG），已保留原图"),
            "cut.png": (png[:-20], undecodable),
            "no-end.png": (png[:-12], undecodable),
            "bad-first.png": (png[:8] + images.chunk(b"IDAT", b"") + png[8:], undecodable),
            "damaged.png": (png[:200] + bytes(40) + png[240:], undecodable),
            "jpeg.png": (b"\xff\xd8\xff\xe0", undecodable),
            "cut.gif": (gif[: len(gif) // 4], undecodable),
            "no-frames.gif": (gif[: 13 + 3 * (2 << (gif[10] & 7))] + b";", undecodable),
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
