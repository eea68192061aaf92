#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""What is said twice about packages says the same: what is built with, the version, checksums.

    packages_test.py REPOSITORY [unittest options]
"""

import pathlib
import re
import sys
import unittest

REPOSITORY = pathlib.Path(sys.argv.pop(1)).resolve()


def groups():
    """The names of each group of packaging/debian-packages.txt, alternatives as a set."""
    result, group = {}, None
    for line in (REPOSITORY / "packaging/debian-packages.txt").read_text().splitlines():
        line = line.partition("#")[0].strip()
        if match := re.fullmatch(r"\[(.*)\]", line):
            group = result.setdefault(match.group(1), set())
        elif line:
            group.add(frozenset(re.split(r"[ |?]+", line.lstrip("? "))))
    return result


def build_depends(control):
    """The same of a debian/control."""
    field = re.search(r"(?m)^Build-Depends:((?:.*\n)(?: .*\n)*)", (REPOSITORY / control).read_text()).group(1)
    return {frozenset(re.findall(r"(?:^|\|) *([a-z0-9.+-]+)", item)) for item in re.sub(r"\s+", " ", field).strip().split(", ")}


class Packages(unittest.TestCase):
    def test_build_dependencies(self):
        # A compiler is there wherever packages are built; certificates are for a download, which none of them makes.
        implied = {frozenset({"g++"}), frozenset({"make"}), frozenset({"ca-certificates"})}
        for control, names in (("debian/control", ("build", "desktop")),
                               ("packaging/debian-tools/control", ("tools", "cargo"))):
            wanted = set().union(*(groups()[name] for name in names)) - implied
            self.assertEqual(build_depends(control), wanted | {frozenset({"debhelper-compat"})}, control)

    def test_flatpak_sources(self):
        """Each source has the checksum of its pin, and none is missing."""
        pins = {}
        for name in ("packaging/tools.txt", "packaging/flatpak/libraries.txt"):
            text = (REPOSITORY / name).read_text()
            pins.update(re.findall(r"(?m)^\[(.*)\]\n(?:(?!\[|sha256).*\n)*sha256: (.*)$", text))
        manifest = (REPOSITORY / "packaging/flatpak/com.vantor.tidewell.Desktop.yml").read_text()
        self.assertEqual(dict(re.findall(r"path: sources/([a-z0-9-]+)\.tar\..*\n +sha256: (.*)", manifest)), pins)

    def test_version(self):
        version = re.search(r"project\(Tidewell VERSION ([0-9.]+)", (REPOSITORY / "CMakeLists.txt").read_text()).group(1)
        self.assertEqual(re.match(r"tidewell \((.*)-[0-9]+\)", (REPOSITORY / "debian/changelog").read_text()).group(1), version)
        self.assertIn(f" tidewell-tools (>= {version}),", (REPOSITORY / "debian/control").read_text())


if __name__ == "__main__":
    unittest.main(verbosity=2)
