#!/usr/bin/env python3
"""Golden LUT identifiers and a blob checksum for tests/api/test_exports.cpp, computed apart from
the library.

The identifier is MurmurHash3 x64-128 (seed 0) over "VEXACrandle", the table's MD5 content digest,
the title, the file title, then domain max and min red, green, blue as float32; its 16 bytes are the
two 64-bit halves, low byte first. The hash below is written from MurmurHash3's published
definition, the digest with hashlib.
"""
import hashlib
import struct

M64 = (1 << 64) - 1


def rotl(x, r):
    return ((x << r) | (x >> (64 - r))) & M64


def fmix(k):
    k ^= k >> 33
    k = (k * 0xFF51AFD7ED558CCD) & M64
    k ^= k >> 33
    k = (k * 0xC4CEB9FE1A85EC53) & M64
    return k ^ (k >> 33)


def murmur3_x64_128(data, seed=0):
    c1, c2 = 0x87C37B91114253D5, 0x4CF5AD432745937F
    h1 = h2 = seed
    n = len(data) // 16
    for i in range(n):
        k1, k2 = struct.unpack_from("<QQ", data, 16 * i)
        h1 ^= (rotl((k1 * c1) & M64, 31) * c2) & M64
        h1 = (rotl(h1, 27) + h2) & M64
        h1 = (h1 * 5 + 0x52DCE729) & M64
        h2 ^= (rotl((k2 * c2) & M64, 33) * c1) & M64
        h2 = (rotl(h2, 31) + h1) & M64
        h2 = (h2 * 5 + 0x38495AB5) & M64
    tail = data[16 * n:] + bytes(16)
    k1, k2 = struct.unpack_from("<QQ", tail)
    if len(data) % 16 > 8:
        h2 ^= (rotl((k2 * c2) & M64, 33) * c1) & M64
    if len(data) % 16 > 0:
        h1 ^= (rotl((k1 * c1) & M64, 31) * c2) & M64
    h1 ^= len(data)
    h2 ^= len(data)
    h1 = (h1 + h2) & M64
    h2 = (h2 + h1) & M64
    h1, h2 = fmix(h1), fmix(h2)
    h1 = (h1 + h2) & M64
    h2 = (h2 + h1) & M64
    return struct.pack("<QQ", h1, h2)


def identifier(entries, dmin, dmax, title, file_title=""):
    f = lambda values: struct.pack("<%df" % len(values), *values)
    digest = hashlib.md5(b"".join(f(e) for e in entries) + f(dmin) + f(dmax)).digest()
    fed = b"VEXACrandle" + digest + title.encode() + file_title.encode() + f(dmax[:3]) + f(dmin[:3])
    return murmur3_x64_128(fed).hex().upper()


# A 2-point identity cube, red fastest, over the default domain (alpha of the minimum 1).
identity2 = [(r, g, b, 1.0) for b in (0, 1) for g in (0, 1) for r in (0, 1)]
unit_min, unit_max = (0.0, 0.0, 0.0, 1.0), (1.0, 1.0, 1.0, 1.0)
print("bytes, titled Neutral:", identifier(identity2, unit_min, unit_max, "Neutral"))
print("file grade.cube:      ", identifier(identity2, unit_min, unit_max, "grade", "grade"))
# The same cube over red -0.5..1.5 from bytes without a title.
print("bytes, red -0.5..1.5: ", identifier(identity2, (-0.5, 0.0, 0.0, 1.0), (1.5, 1.0, 1.0, 1.0), ""))

# The OTX3 image (GetLUTBlob) of a 2-point cube over red -0.25..1.5, green 0..1, blue 0.125..2,
# entry (r, g, b) = (0.1 or 1, g, 0 or 0.8): header, domain, then RGB float32 triples, red fastest.
blob = b"OTX3" + struct.pack("<III6f", 2, 3, 0, -0.25, 0, 0.125, 1.5, 1, 2)
for b in (0, 1):
    for g in (0, 1):
        for r in (0, 1):
            blob += struct.pack("<3f", (0.1, 1.0)[r], g, (0.0, 0.8)[b])
print("blob MD5:             ", hashlib.md5(blob).hexdigest().upper())
