#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Whether every #include goes down the table of rooms in docs/architecture.md, whose order is the law, and no program
knows another.

    rooms_test.py REPOSITORY
"""

import pathlib
import re
import sys

ONLY = {"CompressionKit/queue/": {"CompressionKit/CompressionError.h", "CompressionKit/platform/"}}


def rooms(root):
    """From top to bottom, as they stand in the table."""
    table = (root / "docs/architecture.md").read_text(encoding="utf-8").split("## Rooms")[1].split("\n## ")[0]
    return re.findall(r"^\| `([^`]+)` \|", table, re.M)


def room_of(path, order):
    path = path.replace(".cpp", ".h")  # a room of one header has its source, too
    return next((room for room in order if path.startswith(room)), None)


def faults(root):
    order = rooms(root)
    programs = {room for room in order if "/" not in room[:-1]}
    yield from (f"no such room: {room}" for room in order or ["any"] if not (root / room).exists())
    tops = sorted({room.split("/")[0] for room in order})
    for path in sorted(path for top in tops for path in (root / top).rglob("*") if path.suffix in {".cpp", ".h"}):
        name = path.relative_to(root).as_posix()
        here = room_of(name, order)
        for header in re.findall(r'^[ \t]*#[ \t]*include[ \t]*"([^"]+)"', path.read_text(encoding="utf-8"), re.M):
            there = room_of(header, order)
            if here is None or there is None:
                yield f"in no room of the table: {header if here else name}"
            elif here != there and (order.index(there) < order.index(here) or there in programs or
                                    there not in ONLY.get(here, order)):
                yield f"not downwards: {name} includes {header}"


if __name__ == "__main__":
    found = [*faults(pathlib.Path(sys.argv[1]).resolve())]
    print("\n".join(found))
    sys.exit(1 if found else 0)
