# SPDX-License-Identifier: Apache-2.0
"""Small image files, and what a JPEG shows."""
import struct
import subprocess
import zlib


def png(width, height, rgba):
    """A PNG with transparency; `rgba` gives the four bytes of (x, y), or is all rows as bytes."""
    if callable(rgba):
        rows = b"".join(b"\0" + b"".join(bytes(rgba(x, y)) for x in range(width)) for y in range(height))
    else:
        rows = b"".join(b"\0" + rgba[y * width * 4:(y + 1) * width * 4] for y in range(height))

    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 0)) + chunk(b"IEND", b"")


def half_transparent(width=64, height=48):
    """Left half opaque red, right half fully transparent (with black behind)."""
    return png(width, height, lambda x, _: (220, 20, 20, 255) if x < width // 2 else (0, 0, 0, 0))


def pixels(jpeg):
    """Width, height and a function that gives the colour at (x, y)."""
    done = subprocess.run(["convert", "jpg:-", "-depth", "8", "ppm:-"], input=jpeg, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE)
    assert done.returncode == 0, "not a JPEG: " + done.stderr.decode(errors="replace")
    magic, size, depth, data = done.stdout.split(b"\n", 3)
    assert (magic, depth) == (b"P6", b"255"), done.stdout[:40]
    width, height = map(int, size.split())
    return width, height, lambda x, y: tuple(data[(y * width + x) * 3:(y * width + x) * 3 + 3])


def is_near(colour, wanted, by=12):
    return all(abs(a - b) <= by for a, b in zip(colour, wanted))
