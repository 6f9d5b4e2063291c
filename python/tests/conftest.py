"""Shared fixtures: LUTs whose output is known by formula, a tiny PNG codec, the tool."""

from __future__ import annotations

import os
import struct
import subprocess
import zlib
from pathlib import Path

import numpy as np
import pytest

REPO = Path(__file__).resolve().parents[2]
SAMPLES = REPO / "samples"


def affine(rgb):
    """The map that AFFINE_CUBE holds; trilinear interpolation reproduces it exactly."""
    rgb = np.asarray(rgb, dtype=np.float64)
    r, g, b = rgb[..., 0], rgb[..., 1], rgb[..., 2]
    return np.stack([1.0 - r, 0.5 * g + 0.25 * b, 0.2 + 0.6 * r], axis=-1)


def cube_text(size, function, title=None):
    lines = [f'TITLE "{title}"'] if title else []
    lines.append(f"LUT_3D_SIZE {size}")
    steps = np.arange(size) / (size - 1)
    for b in steps:
        for g in steps:
            for r in steps:
                out = function([r, g, b])
                lines.append(" ".join(f"{v:.9g}" for v in out))
    return ("\n".join(lines) + "\n").encode()


AFFINE_CUBE = cube_text(2, affine)


@pytest.fixture
def affine_lut_path(tmp_path):
    path = tmp_path / "affine.cube"
    path.write_bytes(AFFINE_CUBE)
    return path


def tool_path() -> Path:
    return Path(os.environ.get("CRANDLE_TOOL", REPO / "build" / "release" / "bin" / "crandle"))


@pytest.fixture
def tool():
    path = tool_path()
    if not path.exists():
        pytest.fail(f"the crandle tool is not built at {path} (set CRANDLE_TOOL)")

    def run(*args):
        result = subprocess.run([str(path), *map(str, args)], capture_output=True, text=True,
                                timeout=120)
        assert result.returncode == 0, result.stderr
        return result

    return run


def read_png(path) -> np.ndarray:
    """RGB or RGBA, 8 or 16-bit, non-interlaced PNG into an (H, W, C) array."""
    data = Path(path).read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, idat, header = 8, b"", None
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + length]
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        at += 12 + length
    width, height, depth, colour, _, _, interlace = header
    assert colour in (2, 6) and depth in (8, 16) and interlace == 0
    channels = 3 if colour == 2 else 4
    pixel = channels * depth // 8
    stride = width * pixel
    raw = zlib.decompress(idat)
    rows = np.zeros((height, stride), np.uint8)
    previous = np.zeros(stride, np.int32)
    for y in range(height):
        kind = raw[y * (stride + 1)]
        line = np.frombuffer(raw, np.uint8, stride, y * (stride + 1) + 1).astype(np.int32)
        if kind == 2:
            line = (line + previous) & 255
        elif kind in (1, 3, 4):
            out = line.copy()
            for x in range(stride):
                left = out[x - pixel] if x >= pixel else 0
                up = previous[x]
                if kind == 1:
                    predicted = left
                elif kind == 3:
                    predicted = (left + up) // 2
                else:
                    upleft = previous[x - pixel] if x >= pixel else 0
                    p = left + up - upleft
                    pa, pb, pc = abs(p - left), abs(p - up), abs(p - upleft)
                    predicted = left if pa <= pb and pa <= pc else up if pb <= pc else upleft
                out[x] = (out[x] + predicted) & 255
            line = out
        rows[y] = line
        previous = line
    dtype = ">u2" if depth == 16 else np.uint8
    return rows.view(dtype).reshape(height, width, channels).astype(
        np.uint16 if depth == 16 else np.uint8)


def write_png(path, pixels: np.ndarray) -> None:
    """An (H, W, 3 or 4) uint8 or uint16 array as an unfiltered PNG."""
    height, width, channels = pixels.shape
    depth = 16 if pixels.dtype == np.uint16 else 8
    body = pixels.astype(">u2" if depth == 16 else np.uint8).reshape(height, -1).view(np.uint8)
    raw = b"".join(b"\0" + row.tobytes() for row in body)

    def chunk(kind, content):
        return (struct.pack(">I", len(content)) + kind + content +
                struct.pack(">I", zlib.crc32(kind + content)))

    header = struct.pack(">IIBBBBB", width, height, depth, 2 if channels == 3 else 6, 0, 0, 0)
    Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
                           chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))
