"""Seconds per frame of crandle.distributed.apply_sequence on local clusters of 1 and 2 workers.

    python bench/python/dask_sequence.py [FRAMES] [WIDTH HEIGHT]

Makes a sequence of half-float EXR frames (default 12 at 3840x2160) in a temporary directory,
then applies samples/warm-contrast.cube to it once per cluster size. Cluster start-up is not
counted; reading, applying and writing each frame is.
"""

import shutil
import sys
import tempfile
from pathlib import Path

import numpy as np
from dask.distributed import Client, LocalCluster

import crandle
from crandle.distributed import apply_sequence

REPO = Path(__file__).resolve().parents[2]
LUT = REPO / "samples" / "warm-contrast.cube"


def make_sequence(directory: Path, frames: int, width: int, height: int) -> str:
    sys.path.insert(0, str(REPO / "python" / "tests"))
    from conftest import write_png
    y, x = np.mgrid[0:height, 0:width]
    picture = np.stack([x / width, y / height, (x + y) / (width + height)], -1)
    write_png(directory / "seed.png", np.round(picture * 65535).astype(np.uint16))
    identity = crandle.LUT.from_bytes(b"LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n"
                                      b"0 0 1\n1 0 1\n0 1 1\n1 1 1\n")
    crandle.apply_file(identity, directory / "seed.png", directory / "in.0001.exr", depth="half")
    for n in range(2, frames + 1):
        shutil.copyfile(directory / "in.0001.exr", directory / f"in.{n:04d}.exr")
    return str(directory / "in.%04d.exr")


def main():
    frames = int(sys.argv[1]) if len(sys.argv) > 1 else 12
    width, height = (int(sys.argv[2]), int(sys.argv[3])) if len(sys.argv) > 3 else (3840, 2160)
    with tempfile.TemporaryDirectory() as temporary:
        directory = Path(temporary)
        pattern = make_sequence(directory, frames, width, height)
        for workers in (1, 2):
            with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                              host="127.0.0.1", dashboard_address=None) as cluster, \
                    Client(cluster) as client:
                report = apply_sequence(LUT, pattern, str(directory / f"out{workers}.%04d.exr"),
                                        range(1, frames + 1), client, progress=False)
                print(f"{width}x{height} half EXR, {frames} frames, {workers} worker(s): "
                      f"{report.seconds_per_frame:.3f} s per frame, "
                      f"{report.apply_seconds / max(report.frames_done, 1):.3f} s per frame "
                      f"inside the workers, {len(report.failed)} failed")


if __name__ == "__main__":
    main()
