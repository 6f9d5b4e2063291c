#!/usr/bin/env python3
"""Writes the LUTs in samples/: small looks made by the project for the README's main job."""
import math
import os

SAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "samples")


def smoothstep_contrast(x, amount):
    """An S-curve around mid-grey that keeps 0 and 1 in place."""
    x = min(max(x, 0.0), 1.0)
    s = x * x * (3.0 - 2.0 * x)
    return x + (s - x) * amount


def warm_contrast(r, g, b):
    r, g, b = (smoothstep_contrast(v, 0.6) for v in (r, g, b))
    return min(r * 1.06 + 0.01, 1.0), g * 1.01, b * 0.90


def teal_orange(r, g, b):
    luma = 0.2126 * r + 0.7152 * g + 0.0722 * b
    # Shadows lean teal, highlights orange; saturation is kept near neutral greys.
    t = smoothstep_contrast(luma, 1.0)
    tint = ((1.0 - t) * -0.04 + t * 0.05, (1.0 - t) * 0.02 + t * 0.01, (1.0 - t) * 0.05 - t * 0.06)
    return tuple(min(max(c + d, 0.0), 1.0) for c, d in zip((r, g, b), tint))


def film_curve(x):
    # A soft shoulder and toe: log-like lift of the shadows, gentle roll-off of highlights.
    return 1.0 - math.exp(-3.2 * x ** 1.15) if x > 0 else 0.0


def write_cube_3d(name, title, size, fn):
    with open(os.path.join(SAMPLES, name), "w", newline="\n") as out:
        out.write(f"# {title}: made by the crandle project for its samples\n")
        out.write(f'TITLE "{title}"\n')
        out.write(f"LUT_3D_SIZE {size}\n")
        for b in range(size):
            for g in range(size):
                for r in range(size):
                    v = fn(r / (size - 1), g / (size - 1), b / (size - 1))
                    out.write("%.6f %.6f %.6f\n" % v)


def write_cube_1d(name, title, size, fn):
    scale = 1.0 / fn(1.0)
    with open(os.path.join(SAMPLES, name), "w", newline="\n") as out:
        out.write(f"# {title}: made by the crandle project for its samples\n")
        out.write(f'TITLE "{title}"\n')
        out.write(f"LUT_1D_SIZE {size}\n")
        for i in range(size):
            v = fn(i / (size - 1)) * scale
            out.write("%.6f %.6f %.6f\n" % (v, v, v))


if __name__ == "__main__":
    os.makedirs(SAMPLES, exist_ok=True)
    write_cube_3d("warm-contrast.cube", "Warm contrast", 33, warm_contrast)
    write_cube_3d("teal-orange.cube", "Teal and orange", 17, teal_orange)
    write_cube_1d("film-curve.cube", "Film curve", 1024, film_curve)
