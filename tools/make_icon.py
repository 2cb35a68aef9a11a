#!/usr/bin/env python3
"""make_icon.py OUTPUT.ico: draws the launcher's icon, a pine between two relay arcs, in the sizes Windows asks for."""

import math
import struct
import sys
import zlib

SIZES = (16, 20, 24, 32, 40, 48, 64, 256)
SAMPLES = 4  # per pixel and axis; edges come out smooth

BACKGROUND = (18, 24, 38)
PINE = (46, 196, 148)
TRUNK = (150, 108, 74)
ARC = (41, 151, 255)


def inside_rounded_square(x, y, radius=0.22):
    dx, dy = max(abs(x - 0.5) - (0.5 - radius), 0), max(abs(y - 0.5) - (0.5 - radius), 0)
    return dx * dx + dy * dy <= radius * radius


def inside_pine(x, y):
    tiers = ((0.16, 0.40, 0.13), (0.28, 0.56, 0.18), (0.42, 0.74, 0.23))  # top, bottom, half width at the bottom
    return any(top <= y <= bottom and abs(x - 0.5) <= half * (y - top) / (bottom - top) for top, bottom, half in tiers)


def inside_trunk(x, y):
    return abs(x - 0.5) <= 0.04 and 0.74 <= y <= 0.86


def inside_arc(x, y):
    distance = math.hypot(x - 0.5, y - 0.5)
    angle = abs(math.degrees(math.atan2(y - 0.5, abs(x - 0.5))))
    return 0.33 <= distance <= 0.385 and angle <= 32


def colour_at(x, y):
    if not inside_rounded_square(x, y):
        return None
    for shape, colour in ((inside_trunk, TRUNK), (inside_pine, PINE), (inside_arc, ARC)):
        if shape(x, y):
            return colour
    return BACKGROUND


def pixel(column, row, size):
    hits, total = 0, [0, 0, 0]
    for sub_row in range(SAMPLES):
        for sub_column in range(SAMPLES):
            colour = colour_at((column + (sub_column + 0.5) / SAMPLES) / size, (row + (sub_row + 0.5) / SAMPLES) / size)
            if colour:
                hits += 1
                total = [a + b for a, b in zip(total, colour)]
    if not hits:
        return (0, 0, 0, 0)
    return (*(value // hits for value in total), 255 * hits // SAMPLES**2)


def draw(size):
    return [[pixel(column, row, size) for column in range(size)] for row in range(size)]


def as_bitmap(rows):
    size = len(rows)
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)  # height counts colours and mask
    colours = b"".join(bytes((b, g, r, a)) for row in reversed(rows) for r, g, b, a in row)
    mask_stride = (size + 31) // 32 * 4
    return header + colours + bytes(mask_stride * size)


def as_png(rows):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    size = len(rows)
    raw = b"".join(b"\0" + bytes(value for rgba in row for value in rgba) for row in rows)
    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    images = [(size, as_png(draw(size)) if size >= 256 else as_bitmap(draw(size))) for size in SIZES]
    offset = 6 + 16 * len(images)
    directory, data = struct.pack("<HHH", 0, 1, len(images)), b""
    for size, image in images:
        directory += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(image), offset + len(data))
        data += image
    with open(sys.argv[1], "wb") as output:
        output.write(directory + data)


main()
