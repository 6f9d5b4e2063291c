#!/usr/bin/env python3
"""Writes samples/chart.png: a 16-bit test chart made by the project for the README's main job.

Top: a hue sweep fading to grey, then a row of saturated and skin-tone patches, then a grey ramp
with 11 steps below it. Values are display-referred (sRGB-like), 16 bits per channel.
"""
import colorsys
import os
import struct
import zlib

WIDTH, HEIGHT = 960, 540
OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "samples", "chart.png")

PATCHES = [
    (0.45, 0.32, 0.27), (0.76, 0.58, 0.50), (0.36, 0.48, 0.61), (0.35, 0.42, 0.26),
    (0.51, 0.50, 0.69), (0.40, 0.74, 0.67), (0.84, 0.48, 0.18), (0.29, 0.36, 0.65),
    (0.76, 0.33, 0.38), (0.36, 0.24, 0.42), (0.62, 0.74, 0.25), (0.89, 0.63, 0.18),
]


def pixel(x, y):
    u = x / (WIDTH - 1)
    if y < 270:  # hue sweep, saturated at the top, grey at the bottom of the band
        sat = 1.0 - y / 269
        return colorsys.hsv_to_rgb(u, sat, 0.9)
    if y < 380:  # patches
        return PATCHES[min(int(u * len(PATCHES)), len(PATCHES) - 1)]
    if y < 460:  # continuous grey ramp
        return (u, u, u)
    step = round(u * 10) / 10  # 11 grey steps
    return (step, step, step)


def main():
    raw = bytearray()
    for y in range(HEIGHT):
        raw.append(0)  # filter: none
        for x in range(WIDTH):
            for c in pixel(x, y):
                raw += struct.pack(">H", max(0, min(65535, round(c * 65535))))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", WIDTH, HEIGHT, 16, 2, 0, 0, 0)  # 16-bit RGB
    with open(OUT, "wb") as out:
        out.write(b"\x89PNG\r\n\x1a\n")
        out.write(chunk(b"IHDR", header))
        out.write(chunk(b"tEXt", b"Description\x00crandle test chart"))
        out.write(chunk(b"IDAT", zlib.compress(bytes(raw), 9)))
        out.write(chunk(b"IEND", b""))


if __name__ == "__main__":
    main()
