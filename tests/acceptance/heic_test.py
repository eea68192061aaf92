#!/usr/bin/python3
"""HEIC files through the built program with the real tools; what they show is known before they are encoded.

    heic_test.py PROGRAM [unittest options]
"""

import io
import os
import shutil
import unittest

import numpy
from PIL import Image

import heif
import images
from road_test import PROGRAM, Road, as_srgb, sha256


class HEIC(Road):
    def setUp(self):
        super().setUp()
        if not shutil.which("heif-enc"):
            if os.environ.get("TIDEWELL_REQUIRE_TOOLS"):
                self.fail("no heif-enc")
            self.skipTest("no heif-enc")
        self.work = self.folder / "work"
        self.work.mkdir()

    def encoded(self, *pictures, **options):
        return heif.encode(self.work, *pictures, **options)

    def file(self, *pictures, **options):
        return heif.File(self.encoded(*pictures, **options))

    def kinds(self):
        """Name, file, and the picture as it is to be seen."""
        photo = images.photo(480, 360)
        shown = Image.fromarray(photo)
        yield "plain.heic", self.encoded(photo), shown
        quarter = photo.swapaxes(0, 1)  # turned back and mirrored
        yield "turned.HEIC", self.file(quarter[:, ::-1]).with_property(heif.irot(1)).bytes(), shown
        yield "half.heic", self.file(photo[::-1, ::-1]).with_property(heif.irot(2)).bytes(), shown
        yield "mirrored.heic", self.file(photo[:, ::-1]).with_property(heif.imir(1)).bytes(), shown
        both = self.file(quarter[::-1, ::-1]).with_property(heif.irot(1), heif.imir(1))
        yield "both.heic", both.bytes(), shown
        icon = images.icon(256)
        yield "alpha.heic", self.encoded(icon), Image.fromarray(icon)
        # Red grows to the right in more steps than eight bits have.
        row = numpy.linspace(0, 65535, 600).astype(">u2")
        samples = numpy.zeros((200, 600, 3), ">u2")
        samples[..., 0], samples[..., 1] = row, row[::-1]
        header = numpy.array([600, 200], ">u4").tobytes() + bytes((16, 2, 0, 0, 0))
        rows = b"".join(b"\0" + line.tobytes() for line in samples)
        deep = b"\x89PNG\r\n\x1a\n" + images.chunk(b"IHDR", header)
        deep += images.chunk(b"IDAT", images.zlib.compress(rows, 1)) + images.chunk(b"IEND", b"")
        deep_shown = Image.fromarray((samples >> 8).astype("uint8"))
        yield "deep.heic", self.encoded(deep, options=("-q", "95", "-b", "10")), deep_shown
        tagged = images.saved(photo, "PNG", icc_profile=images.DISPLAY_P3)
        p3 = Image.open(io.BytesIO(tagged))
        yield "p3.heic", self.encoded(tagged), p3
        codes = heif.box(b"colr", b"nclx" + bytes((0, 12, 0, 13, 0, 6, 128)))
        yield "codes.heic", self.file(photo).with_property(codes).bytes(), p3
        padded = numpy.pad(photo, ((0, 24), (0, 32), (0, 0)), "edge")
        tiles = [self.file(padded[y : y + 128, x : x + 128]) for y in range(0, 384, 128) for x in range(0, 512, 128)]
        yield "grid.heic", heif.grid(tiles, 4, 480, 360).bytes(), shown
        turned = [self.file(numpy.ascontiguousarray(padded[y : y + 128, x : x + 128])) for y in (0, 128) for x in (0, 128)]
        grid = heif.grid(turned, 2, 250, 240).with_property(heif.irot(3))
        yield "turned-grid.heif", grid.bytes(), Image.fromarray(photo[:240, :250]).transpose(Image.ROTATE_270)
        general = self.file(photo)
        general.brands = [b"mif1", b"mif1", b"miaf"]
        yield "general.heic", general.bytes(), shown

    def test_kinds(self):
        pictures = {name: (data, shown) for name, data, shown in self.kinds()}
        for name, (data, _) in pictures.items():
            (self.pictures / name).write_bytes(data)
            os.chmod(self.pictures / name, 0o640)
        items = self.compress(*(self.pictures / name for name in pictures))
        for item, (name, (data, shown)) in zip(items, pictures.items()):
            path = self.pictures / name
            with self.subTest(name):
                self.assertEqual((item["path"], item["outcome"]), (str(path), "converted"), item)
                self.assertEqual(path.read_bytes(), data)
                new = path.with_suffix(".png")
                self.assertEqual(item["finalBytes"], new.stat().st_size)
                self.assertEqual(new.stat().st_mode & 0o777, 0o640)
                image = Image.open(new)
                self.assertEqual(image.size, shown.size)
                self.assertEqual(image.getexif().get(0x0112, 1), 1)
                self.assertLess(numpy.abs(as_srgb(image) - as_srgb(shown)).mean(), 5)
                if name == "alpha.heic":
                    alpha = [numpy.asarray(i.convert("RGBA"))[..., 3].astype(int) for i in (image, shown)]
                    self.assertLess(numpy.abs(alpha[0] - alpha[1]).mean(), 2)
                record = self.records()[str(path)]
                self.assertEqual(record["convertedPath"], str(new))
                self.assertEqual((record["state"], record["replacementHash"]), ("committed", sha256(new)))
                backup = self.folder / "data/Tidewell/Undo" / record["sessionID"] / record["backupName"]
                self.assertEqual(backup.read_bytes(), data)
                report = self.reports()[str(path)]
                self.assertEqual(report["outcome"], "converted")
                self.assertTrue(report["selectedEncoder"].startswith("HEIC → PNG · "), report)
        self.assertEqual(len(self.reports()), len(pictures))  # those of the nested runs are gone

    def test_refusals_leave_nothing(self):
        photo = images.photo(96, 64)
        data = self.encoded(photo)
        undecodable, mismatch = "图片无法解码", "文件格式与扩展名不一致"
        self.check_refused({
            "two.heic": (self.encoded(photo, photo[:, ::-1]), "暂不支持包含多张图片的 HEIC 文件"),
            "cut.heic": (data[:-30], undecodable),
            "text.heic": (b"not an image", undecodable),
            "avif.heic": (self.encoded(photo, options=("-A",)), mismatch),
            "png.heic": (images.saved(photo, "PNG"), mismatch),
            "heic.png": (data, undecodable),
            "heic.jpg": (data, mismatch),
        })

    def test_names_are_never_taken_twice(self):
        red, blue = (numpy.full((64, 96, 3), color, "uint8") for color in ((200, 30, 30), (30, 30, 200)))
        (self.pictures / "photo.heic").write_bytes(self.encoded(red))
        (self.pictures / "photo.HEIF").write_bytes(self.encoded(blue))
        (self.pictures / "photo.png").write_bytes(b"mine")
        both = [self.pictures / name for name in ("photo.heic", "photo.HEIF")]
        for items in self.compress(*both, processes=2):
            self.assertEqual([item["outcome"] for item in items], ["converted"] * 2)
        self.assertEqual((self.pictures / "photo.png").read_bytes(), b"mine")
        names = [f"photo（潮汐井{i}）.png" for i in range(1, 5)]
        self.assertEqual(sorted(p.name for p in self.pictures.glob("*.png")), sorted(["photo.png", *names]))
        records = self.records("convertedPath")
        for name in names:
            record = records[str(self.pictures / name)]
            self.assertEqual(record["replacementHash"], sha256(self.pictures / name))
            color = Image.open(self.pictures / name).convert("RGB").getpixel((48, 32))
            self.assertEqual(color[0] > color[2], record["originalPath"].endswith(".heic"), name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
