#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Whether every source says its licence, all that tells a version tells the same one, links of the papers lead
somewhere, and both first pages have the same commands, links and figures.

    papers_test.py REPOSITORY TIDEWELL
"""

import pathlib
import re
import subprocess
import sys

SOURCES = {".cpp", ".h", ".py", ".sh", ".cmake", ".in", ".yml"}
LICENCE = ["SPDX-License-Identifier: Apache-2.0", "SPDX-FileCopyrightText: The Tidewell authors"]
VERSIONS = {  # file, below the repository or the built tree: what its newest version follows
    "CHANGELOG.md": r"^## ",
    "debian/changelog": r"^tidewell \(",
    "share/man/man1/*.1": r'^\.TH .* "Tidewell ',
    "packaging/desktop/*.metainfo.xml": r'<release version="',
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
        paths = [*root.glob(pattern), *program.parent.parent.glob(pattern)]
        if not paths and not pattern.startswith("lib/"):  # without the tools there is nothing to say of them
            yield f"nothing is called {pattern}"
        for path in paths:
            found = re.search(before + r"([0-9]+(?:\.[0-9]+)+)", path.read_text(encoding="utf-8"), re.M)
            if not found or found.group(1) != version:
                yield f"not {version}: {path} ({found and found.group(1)})"


def dead_links(root):
    for paper in [*root.glob("*.md"), *root.glob("*/*.md")]:
        for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", paper.read_text(encoding="utf-8")):
            if not (paper.parent / link).exists():
                yield f"leads nowhere: {paper.relative_to(root)}: {link}"


def said_in_one_language(root):
    def facts(name):
        text = (root / name).read_text(encoding="utf-8")
        printed = r"[0-9]|passed over|跳过"  # by the program, in its user's language
        return set(re.findall(rf"`[^`\n]+`|\]\((?!README)[^)#]+|^    (?!{printed}).*|^\| [a-z-]+\.(?:jpg|png) .*",
                              text, re.M))

    for fact in facts("README.md") ^ facts("README.zh.md"):
        yield f"in one README only: {fact.strip()}"


def main(root, program):
    root = pathlib.Path(root).resolve()
    faults = [*unlicensed(root), *dead_links(root), *said_in_one_language(root),
              *other_versions(root, pathlib.Path(program).resolve())]
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
