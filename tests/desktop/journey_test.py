#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""A user's first journey through the window, by keyboard alone, with the real service and the real tools: paste
files, compress, compare, take it back.

    journey_test.py BUILD       the build tree
"""

import pathlib
import random
import shutil
import sys
import time
import unittest

import window_driver
from window_driver import Window

BUILD = pathlib.Path(sys.argv[1]).resolve()


def draw(path, seed):
    """A picture that can be made smaller: soft colours under some grain."""
    from PIL import Image, ImageFilter
    grain = random.Random(seed)
    small = Image.new("RGB", (24, 18))
    small.putdata([tuple(grain.randrange(256) for _ in range(3)) for _ in range(24 * 18)])
    picture = small.resize((960, 720), Image.BICUBIC).filter(ImageFilter.GaussianBlur(4))
    picture.save(path, quality=97, subsampling=0) if path.suffix == ".jpg" else picture.save(path)


class Journey(unittest.TestCase):
    def setUp(self):
        self.pictures = pathlib.Path.home() / "Bilder — été"
        self.addCleanup(shutil.rmtree, self.pictures)
        (self.pictures / "folder").mkdir(parents=True)
        self.files = [self.pictures / "one.jpg", self.pictures / "two words.png", self.pictures / "folder/three.jpg"]
        for seed, file in enumerate(self.files):
            draw(file, seed)
        self.originals = {file: file.read_bytes() for file in self.files}
        (self.pictures / "broken.jpg").write_bytes(b"\xff\xd8 no picture")
        self.window = Window(BUILD)
        self.addCleanup(self.window.kill)

    def changed(self):
        return [file.name for file in self.files if file.read_bytes() != self.originals[file]]

    def test_files_are_compressed_compared_and_taken_back(self):
        window = self.window
        window.wait_for("Drop images or folders here")
        self.addCleanup(window_driver.copy_files([self.pictures]).kill)
        window.press("ctrl+v")
        window.wait_for("pictures wait")
        time.sleep(1)
        self.assertEqual(self.changed(), [], "compressed without being asked")
        self.assertFalse(window.is_enabled("Undo this batch"))

        window.press("ctrl+Return")
        window.wait(lambda: window.is_enabled("Undo this batch"), "the end of the batch")
        self.assertEqual(len(self.changed()), 3, window.names())
        saved = window.find("Saved ").get_name()
        self.assertIn("1 failed", saved)
        self.assertIsNotNone(window.find("Failed: "), window.names())

        self.compare()
        window.press("alt+u")
        window.wait(lambda: not self.changed(), "the originals")
        window.wait_for("3 files restored")
        window.wait_for("Restored")
        self.assertFalse(window.is_enabled("Undo this batch"))
        self.assertEqual(list(pathlib.Path.home().glob("data/Tidewell/Undo/*/*")), [])
        window.press("ctrl+q")
        self.assertEqual(window.end(), 0)

    def compare(self):
        """From a row to its two pictures and back, and to what was tried."""
        window = self.window
        window.press("ctrl+f")
        window.type("two words")
        window.press("Return", "ctrl+k")
        window.wait_for("Restore the original", "push button")
        window.press("3", "1", "2", "Escape")
        window.wait_for("two words.png")
        window.press("ctrl+e")
        window.wait_for("pngquant")
        window.press("Escape", "ctrl+h")
        window.wait_for("three.jpg")
        window.press("alt+Home")
        window.wait_for("two words.png")

    def test_a_second_start_hands_its_files_over(self):
        self.window.wait_for("Drop images or folders here")
        second = Window(BUILD, self.files[0], "--", b"name \xff.jpg", waits=False)
        self.assertEqual(second.end(), 0)
        self.window.wait_for("one.jpg")
        self.assertEqual(self.changed(), [])


def main():
    if window_driver.is_inside():
        return unittest.main(argv=sys.argv[:1], verbosity=2)
    return window_driver.run(__file__, BUILD, LC_ALL="C.UTF-8")


if __name__ == "__main__":
    sys.exit(main())
