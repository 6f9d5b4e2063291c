#!/usr/bin/env python3
"""Golden values of the GPU apply path, computed once, independently of the C++ code:

- the constant block (32 or 48 bytes) from a LUT's size and domain, following the LUT object's
  texture mapping: scale = (1 - 1/size) / (max - min) in double, rounded to float;
  offset = 0.5/size - scale * min (the double scale), rounded to float; rows blue, green, red,
  alpha; row 2 the size as float four times;
- texture cache keys: the host's value hash (MurmurHash3 x64-128, seed 0x5EED7A1E, the two
  64-bit halves little-endian) over "TinctaTexture", the name or the LUT's MD5 content digest
  (table bytes, domainMin, domainMax as float32, then the shaper's table bytes), "SubLUT\\0" for a
  shaper, "Bound\\0".

The tables are built from formulas the C++ test builds the same way (float32 of a double), so
the digests agree. Run it and paste its output into tests/api/test_apply_gpu.cpp:
    python3 tests/support/gpu_golden.py
"""
import hashlib
import struct

MASK = (1 << 64) - 1
VALUE_HASH_SEED = 0x5EED7A1E


def rotl(x, r):
    return ((x << r) | (x >> (64 - r))) & MASK


def fmix(k):
    k ^= k >> 33
    k = (k * 0xFF51AFD7ED558CCD) & MASK
    k ^= k >> 33
    k = (k * 0xC4CEB9FE1A85EC53) & MASK
    k ^= k >> 33
    return k


def murmur3_x64_128(data, seed):
    c1, c2 = 0x87C37B91114253D5, 0x4CF5AD432745937F
    h1 = h2 = seed
    n = len(data) // 16
    for i in range(n):
        k1, k2 = struct.unpack_from("<QQ", data, 16 * i)
        k1 = (k1 * c1) & MASK
        k1 = rotl(k1, 31)
        k1 = (k1 * c2) & MASK
        h1 ^= k1
        h1 = rotl(h1, 27)
        h1 = (h1 + h2) & MASK
        h1 = (h1 * 5 + 0x52DCE729) & MASK
        k2 = (k2 * c2) & MASK
        k2 = rotl(k2, 33)
        k2 = (k2 * c1) & MASK
        h2 ^= k2
        h2 = rotl(h2, 31)
        h2 = (h2 + h1) & MASK
        h2 = (h2 * 5 + 0x38495AB5) & MASK
    tail = data[16 * n:]
    k1 = k2 = 0
    for i in range(len(tail) - 1, 7, -1):
        k2 ^= tail[i] << (8 * (i - 8))
    if len(tail) > 8:
        k2 = (k2 * c2) & MASK
        k2 = rotl(k2, 33)
        k2 = (k2 * c1) & MASK
        h2 ^= k2
    for i in range(min(len(tail), 8) - 1, -1, -1):
        k1 ^= tail[i] << (8 * i)
    if len(tail) > 0:
        k1 = (k1 * c1) & MASK
        k1 = rotl(k1, 31)
        k1 = (k1 * c2) & MASK
        h1 ^= k1
    h1 ^= len(data)
    h2 ^= len(data)
    h1 = (h1 + h2) & MASK
    h2 = (h2 + h1) & MASK
    h1 = fmix(h1)
    h2 = fmix(h2)
    h1 = (h1 + h2) & MASK
    h2 = (h2 + h1) & MASK
    return struct.pack("<QQ", h1, h2)


def f32(x):
    return struct.unpack("<f", struct.pack("<f", x))[0]


def mapping(size, lo, hi):
    scale, offset = [], []
    for c in range(4):
        s = (1.0 - 1.0 / size) / (f32(hi[c]) - f32(lo[c]))
        scale.append(f32(s))
        offset.append(f32(0.5 / size - s * f32(lo[c])))
    return scale, offset


def constant_block(domain_size, lo, hi, tetrahedral_cube_size=None):
    scale, offset = mapping(domain_size, lo, hi)
    order = [2, 1, 0, 3]
    values = [scale[c] for c in order] + [offset[c] for c in order]
    if tetrahedral_cube_size is not None:
        values += [float(tetrahedral_cube_size)] * 4
    return struct.pack("<%df" % len(values), *values)


def cube_bytes(n):
    # Entry (r, g, b) = (r/(n-1), g/(n-1)^2-ish, b/(n-1) mixed), alpha 1: see GoldenCube.
    out = bytearray()
    for i in range(n * n * n):
        r, g, b = i % n, i // n % n, i // (n * n)
        out += struct.pack("<4f", r / (n - 1), (g / (n - 1)) ** 2, 0.25 + 0.5 * b / (n - 1), 1.0)
    return bytes(out)


def curve_bytes(n):
    # Entry i = (t, t^2, 1 - t, 1) with t = i / (n - 1): see GoldenCurves.
    out = bytearray()
    for i in range(n):
        t = i / (n - 1)
        out += struct.pack("<4f", t, t * t, 1.0 - t, 1.0)
    return bytes(out)


def domain_bytes(lo, hi):
    return struct.pack("<4f", *lo) + struct.pack("<4f", *hi)


def key(identity, shaper):
    fed = b"TinctaTexture" + identity + (b"SubLUT\0" if shaper else b"") + b"Bound\0"
    return murmur3_x64_128(fed, VALUE_HASH_SEED).hex().upper()


def c_bytes(name, data):
    body = ", ".join("0x%02x" % b for b in data)
    return "const uint8_t %s[%d] = {%s};" % (name, len(data), body)


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
    shaped = cube_bytes(3) + domain_bytes(unit_lo, unit_hi) + curve_bytes(256)
    digest = hashlib.md5(shaped).digest()
    print('const char* kShapedCube3Key = "%s";' % key(digest, False))
    print('const char* kShapedCube3ShaperKey = "%s";' % key(digest, True))
    curves = curve_bytes(256) + domain_bytes(odd_lo, odd_hi)
    print('const char* kCurves256OddKey = "%s";' % key(hashlib.md5(curves).digest(), False))
    print('const char* kNamedKey = "%s";  // name "luts/look.cube"' % key(b"luts/look.cube", False))


if __name__ == "__main__":
    main()
