#!/usr/bin/env python3
"""Golden values of the GPU apply path, computed independently of the C++ code. Constant block:
scale = (1 - 1/size) / (max - min), offset = 0.5/size - scale * min (double, then float32), rows
blue, green, red, alpha, then for a tetrahedral cube its size four times. Texture keys: MurmurHash3
x64-128 (seed 0x5EED7A1E, halves little-endian) over "TinctaTexture", the name or the MD5 of table,
domainMin, domainMax (float32) and the shaper's table, "SubLUT\0" for a shaper, "Bound\0". Paste
the output of `python3 tests/support/gpu_golden.py` into tests/api/test_apply_gpu.cpp.
"""
import hashlib
import struct

MASK = (1 << 64) - 1
VALUE_HASH_SEED = 0x5EED7A1E


def rotl(x, r):
    return ((x << r) | (x >> (64 - r))) & MASK


def fmix(k):
    for shift, factor in ((33, 0xFF51AFD7ED558CCD), (33, 0xC4CEB9FE1A85EC53)):
        k ^= k >> shift
        k = (k * factor) & MASK
    return k ^ (k >> 33)


def murmur3_x64_128(data, seed):
    c1, c2 = 0x87C37B91114253D5, 0x4CF5AD432745937F
    mix1 = lambda k: (rotl((k * c1) & MASK, 31) * c2) & MASK
    mix2 = lambda k: (rotl((k * c2) & MASK, 33) * c1) & MASK
    h1 = h2 = seed
    n = len(data) // 16
    for i in range(n):
        k1, k2 = struct.unpack_from("<QQ", data, 16 * i)
        h1 = ((rotl(h1 ^ mix1(k1), 27) + h2) * 5 + 0x52DCE729) & MASK
        h2 = ((rotl(h2 ^ mix2(k2), 31) + h1) * 5 + 0x38495AB5) & MASK
    tail = data[16 * n:] + bytes(16)
    k1, k2 = struct.unpack_from("<QQ", tail)
    if len(data) % 16 > 8:
        h2 ^= mix2(k2)
    if len(data) % 16 > 0:
        h1 ^= mix1(k1)
    h1 ^= len(data)
    h2 ^= len(data)
    h1 = (h1 + h2) & MASK
    h2 = (h2 + h1) & MASK
    h1, h2 = fmix(h1), fmix(h2)
    h1 = (h1 + h2) & MASK
    return struct.pack("<QQ", h1, (h2 + h1) & MASK)


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
