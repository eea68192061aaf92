#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""HEIC files through the built program with the real tools; what they show is known before they are encoded.

    heic_test.py PROGRAM [unittest options]
"""

import io
import shutil
import subprocess
import unittest

import numpy
from PIL import Image

import images
from road_test import Road, sha256


class HEIC(Road):
    def setUp(self):
        super().setUp()
        self.need(shutil.which("heif-enc"), "heif-enc")

    def encoded(self, *pictures, options=("-q", "92")):
        """What heif-enc makes of arrays or PNG bytes."""
        names = []
        for i, picture in enumerate(pictures):
            names.append(self.folder / f"source-{i}.png")
            names[-1].write_bytes(picture if isinstance(picture, bytes) else images.saved(picture, "PNG"))
        target = self.folder / "encoded.heic"
        subprocess.run(["heif-enc", *options, *names, "-o", target], check=True, stdout=subprocess.DEVNULL)
        return target.read_bytes()

    def test_kinds(self):
        photo, icon = images.photo(480, 360), images.icon(256)
        tagged = images.saved(photo, "PNG", icc_profile=images.DISPLAY_P3)
        # Red grows to the right in more steps than eight bits have.
        samples = numpy.zeros((200, 600, 3), ">u2")
        samples[..., 0] = numpy.linspace(0, 65535, 600)
        samples[..., 1] = samples[:, ::-1, 0]
        # heif-enc turns nothing, so the box with the samples' depth becomes a turn.
        quarter = self.encoded(photo.swapaxes(0, 1)[:, ::-1])
        at = quarter.index(b"pixi")
        kinds = {  # the file, and the picture as it is to be seen
            "plain.heic": (self.encoded(photo), Image.fromarray(photo)),
            "p3.heif": (self.encoded(tagged), Image.open(io.BytesIO(tagged))),
            "deep.heic": (self.encoded(images.raw_png(samples), options=("-q", "95", "-b", "10")),
                          Image.fromarray((samples >> 8).astype("uint8"))),
            "alpha.heic": (self.encoded(icon), Image.fromarray(icon)),
            "turned.HEIC": (quarter[:at] + b"irot\1" + bytes(7) + quarter[at + 12 :], Image.fromarray(photo)),
        }

        def judge(name, before, after, report, backup, path):
            self.assertTrue(report["selectedEncoder"].startswith("HEIC → PNG · "), report)

        files, shown = ({name: kind[part] for name, kind in kinds.items()} for part in (0, 1))
        self.check_kinds(files, 5, judge, shown)

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
