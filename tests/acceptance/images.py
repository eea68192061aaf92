# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
"""Pictures for the acceptance tests, made with Pillow, NumPy and a few hand-written bytes."""

import io
import struct
import zlib

import numpy
from PIL import Image


def saved(picture, kind, **options):
    """The bytes of a file with the picture, an array or an image of Pillow's."""
    data = io.BytesIO()
    (picture if isinstance(picture, Image.Image) else Image.fromarray(picture)).save(data, kind, **options)
    return data.getvalue()


def photo(width, height, seed=1):
    """A landscape-like RGB array: smooth noise at several scales, an edge, a little grain."""
    random = numpy.random.default_rng(seed)
    result = numpy.zeros((height, width, 3))
    for cell in (200, 100, 50, 25, 12, 6, 3):
        shape = (height // cell + 2, width // cell + 2, 3)
        small = random.normal(0, 1, shape)
        layers = [
            numpy.asarray(Image.fromarray(small[:, :, c].astype("float32")).resize((width, height), Image.BICUBIC))
            for c in range(3)
        ]
        luma = layers[0]
        for c in range(3):
            result[:, :, c] += (luma * 0.8 + layers[c] * 0.2) * cell**0.55 * 1.6
    x, y = numpy.meshgrid(numpy.arange(width), numpy.arange(height))
    result += 120 + 60 * (y / height)[:, :, None]
    result[y > height * 0.6 + 20 * numpy.sin(x / 37.0)] -= (50, 40, 70)
    result += random.normal(0, 2.0, (height, width, 1))
    return numpy.clip(result, 0, 255).astype("uint8")


# Saturated, but inside the gamut of sRGB also as Display P3 or Adobe RGB: a conversion need not clip them.
PATCHES = ((200, 80, 70), (110, 180, 100), (90, 90, 190), (200, 180, 80), (95, 160, 170), (170, 80, 160))


def with_patches(rgb):
    """The picture with flat, saturated patches, which another gamut would move most: too small for the metric."""
    result = rgb.copy()
    for i, color in enumerate(PATCHES):
        result[16:32, 16 + 48 * i : 32 + 48 * i] = color
    return result


def patches_of(rgb):
    """The mean colours of the patches."""
    return numpy.array([rgb[20:28, 20 + 48 * i : 28 + 48 * i].mean((0, 1)) for i in range(len(PATCHES))])


def lab(rgb, matrix, curve):
    """CIE Lab (D50) of values from 0 to 255, by the columns of primaries and the curve from values to light."""
    xyz = curve(rgb / 255) @ numpy.array(matrix) / (0.9642, 1.0, 0.8249)
    f = numpy.where(xyz > 216 / 24389, numpy.cbrt(xyz), (24389 / 27 * xyz + 16) / 116)
    return numpy.stack([116 * f[:, 1] - 16, 500 * (f[:, 0] - f[:, 1]), 200 * (f[:, 1] - f[:, 2])], 1)


def srgb_curve(values):
    return numpy.where(values <= 0.04045, values / 12.92, ((values + 0.055) / 1.055) ** 2.4)


SRGB_PRIMARIES = ((0.43607, 0.22249, 0.01392), (0.38515, 0.71687, 0.09708), (0.14307, 0.06061, 0.71410))
P3_PRIMARIES = ((0.51512, 0.24120, -0.00105), (0.29198, 0.69225, 0.04189), (0.15710, 0.06657, 0.78407))


def profile_colors(profile):
    """Primaries and curve of a profile of `matrix_profile`."""
    tags = {}
    for i in range(struct.unpack(">I", profile[128:132])[0]):
        name, offset, size = struct.unpack(">4sII", profile[132 + 12 * i : 144 + 12 * i])
        tags[name] = profile[offset : offset + size]
    kind, _, count, gamma = struct.unpack(">4sIIH", tags[b"rTRC"][:14])
    assert (kind, count) == (b"curv", 1)
    matrix = [[v / 65536 for v in struct.unpack(">3i", tags[t][8:20])] for t in (b"rXYZ", b"gXYZ", b"bXYZ")]
    return matrix, lambda values: values ** (gamma / 256)


def screenshot(width, height, seed=2):
    random = numpy.random.default_rng(seed)
    image = numpy.full((height, width, 3), 250, "uint8")
    image[:32] = (60, 64, 76)
    image[32:, : width // 6] = (236, 238, 242)
    for line in range(48, height - 16, 16):
        for column in range(width // 6 + 16, width - 80 - int(random.integers(0, width // 3)), 8):
            glyph = random.random((9, 5)) < 0.4
            image[line : line + 9, column : column + 5][glyph] = (36, 38, 42)
    return image


def icon(size):
    y, x = numpy.mgrid[0:size, 0:size] / size - 0.5
    r = numpy.hypot(x, y)
    alpha = numpy.clip((0.36 - r) * size, 0, 1)
    shadow = 0.5 * numpy.exp(-((r / 0.4) ** 8)) * (1 - alpha)
    rgba = numpy.zeros((size, size, 4))
    rgba[..., 0] = 40 + 60 * numpy.sin(x * 20) ** 2
    rgba[..., 1] = 120 - 120 * y
    rgba[..., 2] = 210
    rgba[..., :3] *= (alpha > 0)[..., None]
    rgba[..., 3] = 255 * (alpha + shadow)
    return numpy.clip(rgba, 0, 255).astype("uint8")


def matrix_profile(name, red, green, blue, gamma):
    """An ICC version 2 display profile from D50-adapted primaries and one gamma."""

    def fixed(value):
        return struct.pack(">i", round(value * 65536))

    def xyz(values):
        return b"XYZ \0\0\0\0" + b"".join(fixed(v) for v in values)

    text = name.encode() + b"\0"
    description = b"desc\0\0\0\0" + struct.pack(">I", len(text)) + text + bytes(8 + 4 + 67)
    curve = b"curv\0\0\0\0" + struct.pack(">IH", 1, round(gamma * 256))
    tags = [
        (b"desc", description),
        (b"cprt", b"text\0\0\0\0none\0"),
        (b"wtpt", xyz((0.9642, 1.0, 0.8249))),
        (b"rXYZ", xyz(red)),
        (b"gXYZ", xyz(green)),
        (b"bXYZ", xyz(blue)),
        (b"rTRC", curve),
        (b"gTRC", curve),
        (b"bTRC", curve),
    ]
    table, data = struct.pack(">I", len(tags)), b""
    offset = 128 + 4 + 12 * len(tags)
    for signature, content in tags:
        content += bytes(-len(content) % 4)
        table += signature + struct.pack(">II", offset + len(data), len(content))
        data += content
    size = offset + len(data)
    header = struct.pack(">I4sI4s4s4s", size, b"none", 0x02100000, b"mntr", b"RGB ", b"XYZ ")
    header += bytes(12) + b"acsp" + bytes(28) + fixed(0.9642) + fixed(1.0) + fixed(0.8249)
    return header + bytes(128 - len(header)) + table + data


DISPLAY_P3 = matrix_profile("Display P3", *P3_PRIMARIES, 2.2)
P3_UNDER_ANOTHER_NAME = matrix_profile("sRGB Transfer with DCI-P3 Gamut", *P3_PRIMARIES, 2.2)
ODD_P3 = (len(DISPLAY_P3) + 1).to_bytes(4, "big") + DISPLAY_P3[4:] + b"\0"
ADOBE_RGB = matrix_profile(
    "Adobe RGB (1998)", (0.60974, 0.31111, 0.01947), (0.20528, 0.62567, 0.06087), (0.14919, 0.06322, 0.74457), 2.2
)


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png_chunks(data):
    position = 8
    while position < len(data):
        (length,) = struct.unpack(">I", data[position : position + 4])
        yield data[position + 4 : position + 8], data[position + 8 : position + 8 + length]
        position += length + 12


def with_chunk(png, kind, data):
    """The PNG with one more chunk after IHDR."""
    return png[:33] + chunk(kind, data) + png[33:]


def raw_png(rgb, interlaced=False):
    """What Pillow does not write: an image of 16 bits per sample, or one interlaced by Adam7. No row filters."""
    height, width, _ = rgb.shape
    passes = ((0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2))
    parts = (rgb[y0::dy, x0::dx] for x0, y0, dx, dy in (passes if interlaced else ((0, 0, 1, 1),)))
    rows = b"".join(b"\0" + row.tobytes() for part in parts for row in part)
    header = struct.pack(">IIBBBBB", width, height, rgb.itemsize * 8, 2, 0, 0, interlaced)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 1)) + chunk(b"IEND", b"")


def saved_gif(frames, disposal=2, **options):
    return saved(frames[0], "GIF", save_all=len(frames) > 1, append_images=frames[1:], disposal=disposal,
                 optimize=False, **options)


def moving_dots(width, height, count, transparent=False, colors=64):
    """Palette frames of shapes that move over a gradient, or over transparent ground (index 0)."""
    frames = []
    y, x = numpy.mgrid[0:height, 0:width]
    palette = [0, 0, 0] + [v for i in range(1, 256) for v in (i * 3 % 256, (i * 5 + 40) % 256, 255 - i)]
    for i in range(count):
        index = (1 + (x * (colors - 2) // width + y * 7 // height) % (colors - 1)).astype("uint8")
        if transparent:
            index[:] = 0
        cx, cy = width * (0.5 + 0.3 * numpy.cos(i * 0.7)), height * (0.5 + 0.3 * numpy.sin(i * 0.9))
        inside = numpy.hypot(x - cx, y - cy) < min(width, height) * 0.22
        index[inside] = (1 + (x + y + i * 5) % (colors - 1))[inside]
        frame = Image.fromarray(index, "P")
        frame.putpalette(palette)
        frames.append(frame)
    return frames
