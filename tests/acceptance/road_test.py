#!/usr/bin/python3
"""Real pictures go through the built program with the real tools; Pillow, which shares no code with us, judges.

    road_test.py PROGRAM [unittest options]

The program's tools must lie in ../lib/tidewell/tools. Without them the tests are skipped, or fail when
TIDEWELL_REQUIRE_TOOLS is set.
"""

import base64
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

    def compress(self, *paths):
        """Runs one batch; returns its items. Nothing may be left in the temporary and working folders."""
        environment = dict(os.environ, XDG_DATA_HOME=str(self.folder / "data"), TMPDIR=str(self.folder / "tmp"))
        done = subprocess.run([PROGRAM, "--compress", *map(str, paths)], env=environment, stdout=subprocess.PIPE,
                              timeout=600)
        result = json.loads(done.stdout)
        failed = sum(item["outcome"] == "failed" for item in result["items"])
        self.assertEqual(done.returncode, 1 if failed else 0)
        self.assertEqual(list((self.folder / "tmp").iterdir()), [])
        self.assertEqual([p.name for p in self.pictures.iterdir() if p.name.startswith(".")], [])
        return result["items"]

    def records(self):
        files = (self.folder / "data/Tidewell/Undo").glob("*/*.json")
        return {r["originalPath"]: r for r in map(json.loads, (f.read_text() for f in files))}

    def reports(self):
        files = (self.folder / "data/Tidewell/CompressionDiagnostics").glob("*.json")
        return {r["source"]: r for r in map(json.loads, (f.read_text() for f in files))}

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


class JPEG(Road):
    def test_kinds(self):
        pixels = Image.fromarray(images.photo(900, 600))
        exif = Image.Exif()
        exif[0x0112] = 6
        exif[0x010F] = "Camera"
        kinds = {
            "plain.jpg": dict(quality=92),
            "turned.JPG": dict(quality=92, exif=exif),
            "p3.jpeg": dict(quality=92, icc_profile=images.DISPLAY_P3),
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
                # The metric, run by hand on backup and replacement, gives the score on record.
                accepted = next(a for a in report["attempts"] if a["encoder"] == report["selectedEncoder"])
                by_hand = subprocess.run([TOOLS / "ssimulacra2", backup, path], stdout=subprocess.PIPE, check=True)
                self.assertAlmostEqual(float(by_hand.stdout), accepted["score"], places=4)

    def test_refusals_change_nothing(self):
        good = io.BytesIO()
        Image.fromarray(images.photo(400, 300)).save(good, "JPEG", quality=92)
        data = good.getvalue()
        (self.pictures / "cut.jpg").write_bytes(data[: len(data) // 2])
        (self.pictures / "text.jpg").write_text("not an image")
        (self.pictures / "empty.jpg").write_bytes(b"")
        (self.pictures / "png.jpg").write_bytes(images.interlaced_png(images.photo(32, 32)))
        sof = data.index(b"\xff\xc0")
        huge = bytearray(data)
        huge[sof + 5 : sof + 9] = (60000).to_bytes(2, "big") * 2
        (self.pictures / "huge.jpg").write_bytes(huge)
        (self.pictures / "real.jpg").write_bytes(data)
        (self.pictures / "link.jpg").symlink_to("real.jpg")
        (self.pictures / "folder.jpg").mkdir()
        expected = {
            "cut.jpg": "图片无法解码",
            "text.jpg": "图片无法解码",
            "empty.jpg": "图片无法解码",
            "png.jpg": "文件格式与扩展名不一致",
            "huge.jpg": "图片无法解码",
            "link.jpg": "请选择普通图片文件",
            "folder.jpg": "请选择普通图片文件",
        }
        before = {n: (self.pictures / n).read_bytes() for n in expected if n != "folder.jpg"}
        items = self.compress(*(self.pictures / name for name in expected))
        for item, (name, message) in zip(items, expected.items()):
            self.assertEqual((item["outcome"], item.get("error")), ("failed", message), name)
        for name, data in before.items():
            self.assertEqual((self.pictures / name).read_bytes(), data, name)
        self.assertEqual(self.records(), {})


class PNG(Road):
    def kinds(self):
        exif = Image.Exif()
        exif[0x0112] = 6
        photo = Image.fromarray(images.photo(640, 480))

        def saved(image, **options):
            data = io.BytesIO()
            image.save(data, "PNG", compress_level=1, **options)
            return data.getvalue()

        grey16 = (images.photo(300, 200)[..., 0].astype("uint16") * 257) + numpy.arange(300, dtype="uint16")
        yield "photo.png", saved(photo)
        yield "screenshot.png", saved(Image.fromarray(images.screenshot(1000, 600)))
        yield "icon.png", saved(Image.fromarray(images.icon(256), "RGBA"))
        yield "palette.png", saved(photo.quantize(64))
        yield "grey16.png", saved(Image.fromarray(grey16))
        yield "interlaced.png", images.interlaced_png(images.photo(320, 240))
        yield "turned.png", saved(photo, exif=exif)
        yield "p3.png", saved(photo, icc_profile=images.DISPLAY_P3)
        yield "adobe.png", saved(photo, icc_profile=images.ADOBE_RGB)
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
                if name == "icon.png":
                    alpha = [numpy.asarray(i.convert("RGBA"))[..., 3].astype(int) for i in (old, new)]
                    self.assertLess(numpy.abs(alpha[0] - alpha[1]).mean(), 2)

    def test_refusals_change_nothing(self):
        good = io.BytesIO()
        Image.fromarray(images.photo(64, 64)).save(good, "PNG")
        data = good.getvalue()
        animated = images.with_chunk(data, b"acTL", bytes((0, 0, 0, 2, 0, 0, 0, 0)))
        apng_message = "暂不支持动态 PNG（APNG），已保留原图"
        undecodable = "图片无法解码"
        cases = {
            "apng.png": (animated, apng_message),
            "cut.png": (data[:-20], undecodable),
            "no-end.png": (data[:-12], undecodable),
            "bad-first.png": (data[:8] + images.chunk(b"IDAT", b"") + data[8:], undecodable),
            "damaged.png": (data[:200] + bytes(40) + data[240:], undecodable),
            "jpeg.png": (b"\xff\xd8\xff\xe0", undecodable),
        }
        for name, (content, _) in cases.items():
            (self.pictures / name).write_bytes(content)
        items = self.compress(*(self.pictures / name for name in cases))
        for item, (name, (content, message)) in zip(items, cases.items()):
            self.assertEqual((item["outcome"], item.get("error")), ("failed", message), name)
            self.assertEqual((self.pictures / name).read_bytes(), content)


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

    def test_refusals_change_nothing(self):
        images.save_gif(self.pictures / "whole.gif", images.moving_dots(100, 80, 3), 100)
        data = (self.pictures / "whole.gif").read_bytes()
        no_frames = data[: 13 + 3 * (2 << (data[10] & 7))] + b";"
        cases = {"cut.gif": data[: len(data) // 4], "no-frames.gif": no_frames, "png.gif": b"\x89PNG\r\n\x1a\n"}
        for name, content in cases.items():
            (self.pictures / name).write_bytes(content)
        items = self.compress(*(self.pictures / name for name in cases))
        for item, (name, content) in zip(items, cases.items()):
            self.assertEqual((item["outcome"], item.get("error")), ("failed", "图片无法解码"), name)
            self.assertEqual((self.pictures / name).read_bytes(), content)


class Batch(Road):
    def test_two_processes_share_one_directory(self):
        paths = []
        for i in range(4):
            paths.append(self.pictures / f"photo-{i}.jpg")
            Image.fromarray(images.photo(500, 400, i)).save(paths[-1], "JPEG", quality=93)
        before = {p: p.read_bytes() for p in paths}
        environment = dict(os.environ, XDG_DATA_HOME=str(self.folder / "data"), TMPDIR=str(self.folder / "tmp"))
        both = [subprocess.Popen([PROGRAM, "--compress", *map(str, paths)], env=environment, stdout=subprocess.PIPE)
                for _ in range(2)]
        results = [json.loads(p.communicate(timeout=600)[0])["items"] for p in both]
        for i, path in enumerate(paths):
            outcomes = sorted(r[i]["outcome"] for r in results)
            self.assertIn(outcomes, (["replaced", "skipped"], ["replaced", "replaced"]))
            Image.open(path).load()
        first = [r for r in map(json.loads, (f.read_text() for f in (self.folder / "data/Tidewell/Undo").glob("*/*.json")))
                 if r["originalHash"] == hashlib.sha256(before[pathlib.Path(r["originalPath"])]).hexdigest()]
        self.assertEqual(len(first), len(paths))

    def test_names_are_bytes(self):
        name = os.fsencode(self.pictures) + b"/\xff\xfe photo.jpg"
        data = io.BytesIO()
        Image.fromarray(images.photo(400, 300)).save(data, "JPEG", quality=93)
        with open(name, "wb") as file:
            file.write(data.getvalue())
        (item,) = self.compress(os.fsdecode(name))
        self.assertEqual(item["outcome"], "replaced")
        (record,) = self.records().values()
        self.assertEqual(base64.b64decode(record["originalPathBase64"]), name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
