"""HEIF files taken apart and put together again, for what heif-enc cannot write."""

import struct
import subprocess

from PIL import Image


def box(kind, payload):
    return struct.pack(">I4s", len(payload) + 8, kind) + payload


def full(kind, payload, version=0, flags=0):
    return box(kind, struct.pack(">I", version << 24 | flags) + payload)


def boxes(data):
    while len(data) >= 8:
        size, kind = struct.unpack(">I4s", data[:8])
        yield kind, data[8:size], data[:size]
        data = data[size:]


def irot(quarters):
    return box(b"irot", bytes([quarters]))


def imir(axis):
    return box(b"imir", bytes([axis]))


class File:
    """`items` by identifier: type, hidden, properties (whole boxes), data; `references`: type, from, to."""

    def __init__(self, data):
        meta = {kind: payload for kind, payload, _ in boxes(next(p for k, p, _ in boxes(data) if k == b"meta")[4:])}
        (self.primary,) = struct.unpack(">H", meta[b"pitm"][4:6])
        self.brands = [b"heic", b"mif1", b"heic"]
        self.items, self.references = {}, []
        for _, entry, _ in boxes(meta[b"iinf"][6:]):
            item, _, kind = struct.unpack(">HH4s", entry[4:12])
            self.items[item] = [kind, entry[3] & 1, [], b""]
        parts = {kind: payload for kind, payload, _ in boxes(meta[b"iprp"])}
        properties = [whole for _, _, whole in boxes(parts[b"ipco"])]
        used = parts[b"ipma"][8:]
        while used:
            item, count = struct.unpack(">HB", used[:3])
            self.items[item][2] = [properties[(i & 0x7F) - 1] for i in used[3 : 3 + count]]
            used = used[3 + count :]
        for kind, payload, _ in boxes(meta.get(b"iref", bytes(4))[4:]):
            source, count = struct.unpack(">HH", payload[:4])
            self.references.append((kind, source, list(struct.unpack(f">{count}H", payload[4:]))))
        places = meta[b"iloc"]
        assert places[:6] == b"\0\0\0\0\x44\x40", places[:6]
        (count,) = struct.unpack(">H", places[6:8])
        for i in range(count):
            item, _, base, extents, at, size = struct.unpack(">HHIHII", places[8 + 18 * i : 26 + 18 * i])
            assert extents == 1
            self.items[item][3] = data[base + at : base + at + size]

    def bytes(self):
        entries, used, references, data = b"", b"", b"", b""
        properties = []
        for item, (kind, hidden, own, content) in self.items.items():
            entries += full(b"infe", struct.pack(">HH4sB", item, 0, kind, 0), 2, hidden)
            used += struct.pack(">HB", item, len(own))
            for one in own:
                if one not in properties:
                    properties.append(one)
                used += bytes([properties.index(one) + 1])
            data += content
        for kind, source, targets in self.references:
            references += box(kind, struct.pack(f">HH{len(targets)}H", source, len(targets), *targets))

        def meta(at):
            places = b"\x44\0" + struct.pack(">H", len(self.items))
            for item, (_, _, _, content) in self.items.items():
                places += struct.pack(">HHHII", item, 0, 1, at, len(content))
                at += len(content)
            parts = full(b"hdlr", bytes(4) + b"pict" + bytes(13)) + full(b"pitm", struct.pack(">H", self.primary))
            parts += full(b"iloc", places) + full(b"iinf", struct.pack(">H", len(self.items)) + entries)
            parts += full(b"iref", references) if references else b""
            associations = full(b"ipma", struct.pack(">I", len(self.items)) + used)
            return full(b"meta", parts + box(b"iprp", box(b"ipco", b"".join(properties)) + associations))

        head = box(b"ftyp", self.brands[0] + bytes(4) + b"".join(self.brands[1:]))
        return head + meta(len(head) + len(meta(0)) + 8) + box(b"mdat", data)

    def with_property(self, *whole):
        self.items[self.primary][2] += whole
        return self


def grid(tiles, columns, width, height):
    """As phones write it: equal tiles, row by row, hidden in one file."""
    result = tiles[0]
    for i, tile in enumerate(tiles):
        item = tile.items[tile.primary]
        result.items[i + 1] = [item[0], 1, list(item[2]), item[3]]
    last = len(tiles) + 1
    layout = struct.pack(">BBBBHH", 0, 0, len(tiles) // columns - 1, columns - 1, width, height)
    result.items[last] = [b"grid", 0, [full(b"ispe", struct.pack(">II", width, height))], layout]
    result.references.append((b"dimg", last, list(range(1, last))))
    result.primary = last
    return result


def encode(folder, *pictures, options=("-q", "92")):
    """What heif-enc makes of arrays or PNG bytes."""
    names = []
    for i, picture in enumerate(pictures):
        names.append(folder / f"source-{i}.png")
        if isinstance(picture, bytes):
            names[-1].write_bytes(picture)
        else:
            Image.fromarray(picture).save(names[-1])
    target = folder / "encoded.heic"
    subprocess.run(["heif-enc", *options, *names, "-o", target], check=True, stdout=subprocess.DEVNULL)
    return target.read_bytes()
