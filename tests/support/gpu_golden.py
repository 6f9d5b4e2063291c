#!/usr/bin/env python3
"""Golden values of the GPU apply path, computed independently of the C++ code. Constant block:
scale = (1 - 1/size) / (max - min), offset = 0.5/size - scale * min (double, then float32), rows
blue, green, red, alpha, then for a tetrahedral cube its size four times. Texture keys: MurmurHash3
x64-128 (seed 0x5EED7A1E, halves little-endian) over "TinctaTexture", the name or the MD5 of table,
domainMin, domainMax (float32) and the shaper's table, "SubLUT\0" for a shaper, "Bound\0". Paste
the output of `python3 tests/support/gpu_golden.py` into tests/api/test_apply_gpu.cpp.
"""
import contextlib
import hashlib
import io
import os
import struct
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
with contextlib.redirect_stdout(io.StringIO()):  # the module prints its own goldens when loaded
    from golden_identifiers import murmur3_x64_128

VALUE_HASH_SEED = 0x5EED7A1E


def f32(x):
    return struct.unpack("<f", struct.pack("<f", x))[0]


def constant_block(domain_size, lo, hi, tetrahedral_cube_size=None):
    scale = [(1.0 - 1.0 / domain_size) / (f32(hi[c]) - f32(lo[c])) for c in range(4)]
    offset = [0.5 / domain_size - scale[c] * f32(lo[c]) for c in range(4)]
    values = [scale[c] for c in (2, 1, 0, 3)] + [offset[c] for c in (2, 1, 0, 3)]
    values += [float(tetrahedral_cube_size)] * 4 if tetrahedral_cube_size else []
    return struct.pack("<%df" % len(values), *values)


def cube_bytes(n):  # see GoldenCube
    return b"".join(struct.pack("<4f", i % n / (n - 1), (i // n % n / (n - 1)) ** 2,
                                0.25 + 0.5 * (i // (n * n)) / (n - 1), 1.0) for i in range(n ** 3))


def curve_bytes(n):  # see GoldenCurves
    return b"".join(struct.pack("<4f", i / (n - 1), (i / (n - 1)) ** 2, 1.0 - i / (n - 1), 1.0)
                    for i in range(n))


def domain_bytes(lo, hi):
    return struct.pack("<8f", *lo, *hi)


def key(identity, shaper):
    fed = b"TinctaTexture" + identity + (b"SubLUT\0" if shaper else b"") + b"Bound\0"
    return murmur3_x64_128(fed, VALUE_HASH_SEED).hex().upper()


def c_bytes(name, data):
    return "const uint8_t %s[%d] = {%s};" % (name, len(data), ", ".join("0x%02x" % b for b in data))


def main():
    unit_lo, unit_hi = (0.0, 0.0, 0.0, 0.0), (1.0, 1.0, 1.0, 1.0)
    odd_lo, odd_hi = (-0.25, 0.0, 0.1, 0.0), (1.5, 2.0, 0.9, 1.0)
    print("// Constant blocks.")
    print(c_bytes("kCube33Tetrahedral", constant_block(33, unit_lo, unit_hi, 33)))
    print(c_bytes("kCube33Trilinear", constant_block(33, unit_lo, unit_hi)))
    print(c_bytes("kCurves1024OddDomain", constant_block(1024, odd_lo, odd_hi)))
    # A cube of 5 behind a shaper of 256 over the odd domain: the shaper's mapping, the cube's size.
    print(c_bytes("kShaped5Tetrahedral", constant_block(256, odd_lo, odd_hi, 5)))

    print("// Texture keys.")
    cube = cube_bytes(3) + domain_bytes(unit_lo, unit_hi)
    print('const char* kCube3Key = "%s";' % key(hashlib.md5(cube).digest(), False))
    digest = hashlib.md5(cube + curve_bytes(256)).digest()
    print('const char* kShapedCube3Key = "%s";' % key(digest, False))
    print('const char* kShapedCube3ShaperKey = "%s";' % key(digest, True))
    curves = curve_bytes(256) + domain_bytes(odd_lo, odd_hi)
    print('const char* kCurves256OddKey = "%s";' % key(hashlib.md5(curves).digest(), False))
    print('const char* kNamedKey = "%s";  // name "luts/look.cube"' % key(b"luts/look.cube", False))


if __name__ == "__main__":
    main()
