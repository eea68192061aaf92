#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Whether every source says its licence, and all that tells a version tells the same one.

    papers_test.py REPOSITORY TIDEWELL
"""

import pathlib
import re
import subprocess
import sys

SOURCES = {".cpp", ".h", ".py", ".sh", ".cmake"}
LICENCE = ["SPDX-License-Identifier: Apache-2.0", "SPDX-FileCopyrightText: The Tidewell authors"]
VERSIONS = {  # file, below the repository or the built tree: what its newest version follows
    "CHANGELOG.md": r"^## ",
    "debian/changelog": r"^tidewell \(",
    "share/man/man1/*.1": r'^\.TH .* "Tidewell ',
    "share/metainfo/*.metainfo.xml": r'<release version="',
    "lib/tidewell/tools/tools.json": r'"tidewell": "',
}


def sources(root):
    tops = [path for path in root.iterdir() if not re.match(r"build|obj-|out$|\.git$|\.cache$", path.name)]
    for path in (path for top in tops for path in ([top] if top.is_file() else top.rglob("*"))):
        if path.is_file():
            if path.suffix in SOURCES or path.name == "CMakeLists.txt" or path.read_bytes()[:3] == b"#!/":
                yield path


def unlicensed(root):
    for path in sources(root):
        head = path.read_text(encoding="utf-8").split("\n", 6)[:6]
        if not all(any(line.endswith(words) for line in head) for words in LICENCE):
            yield f"says no licence: {path.relative_to(root)}"


def other_versions(root, program):
    version = subprocess.run([program, "--version"], capture_output=True, text=True, check=True).stdout.split()[-1]
    for pattern, before in VERSIONS.items():
        for path in [*root.glob(pattern), *program.parent.parent.glob(pattern)]:
            found = re.search(before + r"([0-9]+(?:\.[0-9]+)+)", path.read_text(encoding="utf-8"), re.M)
            if not found or found.group(1) != version:
                yield f"not {version}: {path} ({found and found.group(1)})"


def main(root, program):
    root = pathlib.Path(root).resolve()
    faults = [*unlicensed(root), *other_versions(root, pathlib.Path(program).resolve())]
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
