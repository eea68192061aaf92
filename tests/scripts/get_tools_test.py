#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""What scripts/get-tools takes and refuses, with stand-ins for the programs, their sources and the network.

    get_tools_test.py REPOSITORY [unittest options]
"""

import hashlib
import io
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest

REPOSITORY = pathlib.Path(sys.argv.pop(1)).resolve()

# A program that passes get-tools's trial of gifsicle or oxipng: it writes the head of an image where it is told to.
STAND_IN = """#!/bin/bash
if [[ $1 == --version ]]; then echo '{answer}'; exit; fi
while (($# > 1)); do
  case "$1 $2" in "-o "*.gif) printf '{gif}' >"$2" ;; "--out "*) printf '{png}' >"$2" ;; esac
  shift
done
"""
ENTRIES = {
    "gifsicle": dict(version="1.96", origin="debian-source trixie gifsicle", answer="LCDF Gifsicle 1.96"),
    "oxipng": dict(version="9.1.5", origin="crate oxipng", answer="oxipng 9.1.5", needs="1.74"),
}
TARBALL = io.BytesIO()
with tarfile.open(fileobj=TARBALL, mode="w:gz") as archive:
    for name in ("src", "src/.keep", "configure"):
        member = tarfile.TarInfo("gifsicle/" + name)
        member.type, member.mode = (tarfile.DIRTYPE if name == "src" else tarfile.REGTYPE), 0o755
        archive.addfile(member)


def sha256(data):
    return hashlib.sha256(data).hexdigest()


class GetTools(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory(prefix="tidewell-tools-")
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.destination = self.folder / "tools"
        for name in ("checkout/scripts", "checkout/packaging", "bin", "offer", "host"):
            (self.folder / name).mkdir(parents=True)
        for path in pathlib.Path("/usr/bin").iterdir():
            if path.name not in ENTRIES:  # the machine's own would count where any version does
                (self.folder / "host" / path.name).symlink_to(path)
        for name in ("get-tools", "tools-manifest.sh", "tools-build.sh"):
            shutil.copy(REPOSITORY / "scripts" / name, self.folder / "checkout/scripts")
        self.program("../checkout/scripts/install-packages", "#!/bin/sh\n")

    def program(self, name, text):
        path = self.folder / "bin" / name
        path.write_text(text)
        path.chmod(0o755)

    def stand_in(self, answer, works=True):
        return STAND_IN.format(answer=answer, gif="GIF89a" if works else "", png=r"\x89PNG" if works else "")

    def manifest(self, name, **changes):
        entry = {**ENTRIES[name], "sha256": "0" * 64, "licence": "MIT", "programs": name, "probe": "--version", **changes}
        lines = [f"[{name}]", *(f"{key}: {value}" for key, value in entry.items() if value)]
        (self.folder / "checkout/packaging/tools.txt").write_text("\n".join(lines) + "\n")

    def get(self, *options, unpinned=""):
        """Runs get-tools; returns its status and errors, and what tools.json says of the one program, if it is there."""
        environment = dict(os.environ, PATH=f"{self.folder}/bin:{self.folder}/host", CARGO_HOME=f"{self.folder}/cargo",
                           XDG_CACHE_HOME=f"{self.folder}/cache", TIDEWELL_UNPINNED=unpinned)
        done = subprocess.run([self.folder / "checkout/scripts/get-tools", *options, self.destination], env=environment,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        made = self.destination / "tools.json"
        tools = json.loads(made.read_text())["tools"] if made.exists() else []
        for tool in tools:
            self.assertEqual(tool["sha256"], sha256((self.destination / tool["name"]).read_bytes()))
        self.assertEqual({p.name for p in self.destination.glob("*")} - {"tools.json"}, {t["name"] for t in tools})
        return done.returncode, done.stderr, tools[0] if tools else None

    def test_on_path(self):
        cases = [  # which version, does it work, TIDEWELL_UNPINNED, is it pinned where it is taken
            ("1.96", True, "", True),
            ("1.96", False, "", None),
            ("1.96.1", True, "", None),
            ("1.93", True, "oxipng", None),
            ("1.93", True, "oxipng gifsicle", False),
            ("1.93", True, "all", False),
            ("1.93", False, "all", None),
        ]
        self.manifest("gifsicle")
        for version, works, unpinned, pinned in cases:
            with self.subTest(version=version, works=works, unpinned=unpinned):
                self.program("gifsicle", self.stand_in("LCDF Gifsicle " + version, works))
                status, _, tool = self.get("--cached", unpinned=unpinned)
                self.assertEqual((status, tool and (tool["version"], tool["pinned"], tool["origin"])),
                                 (1, None) if pinned is None else (0, (version, pinned, "PATH")))

    def offer(self, name, version):
        """Lets apt-get or cargo hand out a source of that version; returns its bytes."""
        source = TARBALL.getvalue() if name == "gifsicle" else b"the crate"
        offered = self.folder / "offer"
        shutil.rmtree(offered)
        offered.mkdir()
        file = offered / (f"gifsicle_{version}.orig.tar.gz" if name == "gifsicle" else f"oxipng-{version}.crate")
        file.write_bytes(source)
        built = offered / "built"
        built.write_text(self.stand_in(ENTRIES[name]["answer"]))
        built.chmod(0o755)
        self.program("apt-config", "#!/bin/sh\n")
        self.program("autoreconf", "#!/bin/sh\n")
        self.program("make", f"#!/bin/sh\ncp {built} src/gifsicle\n")
        self.program("apt-get", f"""#!/bin/bash
case "$*" in
  *--print-uris*) echo "'mirror:/debian/dists/trixie/InRelease' x" ;;
  source*) cp {file} . ;;
esac
""")
        self.program("cargo", f"""#!/bin/bash
if [[ $1 == --version ]]; then echo 'cargo 1.80.0 (x)'; exit; fi
while [[ $1 != --root ]]; do shift; done
mkdir -p "$CARGO_HOME/registry/cache/a" "$2/bin" && cp {built} "$2/bin/oxipng"
rm -f "$CARGO_HOME"/registry/cache/a/* && cp {file} "$CARGO_HOME/registry/cache/a"
""")
        return source

    def test_sources(self):
        cases = [  # is the checksum accepted, which version is offered, TIDEWELL_UNPINNED, is it pinned where there is one
            (True, None, "", True),
            (False, None, "jpeg-xl", None),
            (False, None, "all", False),
            (True, "1.97", "", None),
            (True, "1.97", "gifsicle oxipng", False),
        ]
        for name, entry in ENTRIES.items():
            for accepted, version, unpinned, pinned in cases:
                with self.subTest(name, accepted=accepted, version=version, unpinned=unpinned):
                    shutil.rmtree(self.folder / "cache", ignore_errors=True)
                    shutil.rmtree(self.destination, ignore_errors=True)
                    source = self.offer(name, version or entry["version"])
                    sums = "1" * 64 + " " + (sha256(source) if accepted else "2" * 64)
                    self.manifest(name, sha256=sums)
                    status, errors, tool = self.get(unpinned=unpinned)
                    self.assertEqual((status == 0, tool and tool["pinned"]), (pinned is not None, pinned), errors)
                    if pinned is None:
                        self.assertRegex(errors, "accepted checksums|the pin is|could be looked at")
                        self.assertEqual(list((self.folder / "cache").glob(f"*/tools/{name}-*")), [])
                        continue
                    self.assertEqual(tool["origin"], entry["origin"])
                    # What is kept counts for these pins only, and what was let through only where it still is.
                    shutil.rmtree(self.destination)
                    self.assertEqual(self.get("--cached")[0] == 0, pinned)
                    shutil.move(self.folder / "cache", self.folder / "gone")
                    self.assertEqual(self.get("--cached")[0] == 0, pinned)
                    shutil.move(self.folder / "gone", self.folder / "cache")
                    self.manifest(name, sha256=sums + " " + "3" * 64)
                    self.assertEqual(self.get("--cached")[::2], (1, None))

    def test_from_sources(self):
        """A crate that its lock file does not mean is refused; neither PATH nor the cache counts."""
        self.program("oxipng", self.stand_in(ENTRIES["oxipng"]["answer"]))
        self.offer("oxipng", "9.1.5")
        self.manifest("oxipng")
        given = self.folder / "given"
        for name in ("oxipng", "crates"):
            (given / name).mkdir(parents=True)
        crate = io.BytesIO()
        with tarfile.open(fileobj=crate, mode="w:gz") as archive:
            archive.addfile(tarfile.TarInfo("needed-1.0/Cargo.toml"))
        needed = given / "crates/needed-1.0.crate"
        for content, prebuilt, good in ((crate.getvalue(), True, True), (crate.getvalue() + b"x", True, False),
                                        (None, True, False), (crate.getvalue(), False, True)):
            with self.subTest(content=content, prebuilt=prebuilt):
                lock = [("oxipng", None), ("needed", sha256(crate.getvalue()))] + [("windows_x", "5" * 64)] * prebuilt
                (given / "oxipng/Cargo.lock").write_text("".join(
                    f'[[package]]\nname = "{name}"\nversion = "1.0"\n' + (f'checksum = "{sum}"\n' if sum else "")
                    for name, sum in lock))
                needed.unlink(missing_ok=True)
                if content:
                    needed.write_bytes(content)
                shutil.rmtree(self.destination, ignore_errors=True)
                status, errors, tool = self.get("--from", given)
                self.assertEqual((status, tool and (tool["pinned"], tool["origin"])),
                                 (0, (True, "crate oxipng")) if good else (1, None), errors)

    def test_broken_manifests(self):
        self.program("gifsicle", self.stand_in(ENTRIES["gifsicle"]["answer"]))
        for changes in (dict(sha256=None), dict(sha256="12"), dict(version=None), dict(licence=None),
                        dict(chek="x"), dict(origin='a "quoted" one'), dict(programs="gifsicle\nprograms: oxipng")):
            with self.subTest(**changes):
                self.manifest("gifsicle", **changes)
                status, errors, tool = self.get("--cached")
                self.assertEqual((status, tool), (1, None))
                self.assertIn("the manifest is broken", errors)


if __name__ == "__main__":
    unittest.main(verbosity=2)
