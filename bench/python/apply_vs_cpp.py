"""lut.apply on a 4K float32 frame beside the C++ BM_ApplyCPU/3D33 of bench_apply, in one run.

    python bench/python/apply_vs_cpp.py [build/release/bin/bench_apply]
"""

import subprocess
import sys
import time

import numpy as np

import crandle

REPS = 10


def best_ms(call):
    call()
    times, cpu = [], []
    for _ in range(REPS):
        start, start_cpu = time.perf_counter(), time.thread_time()
        call()
        times.append(time.perf_counter() - start)
        cpu.append(time.thread_time() - start_cpu)
    return 1e3 * min(times), 1e3 * float(np.median(times)), 1e3 * float(np.median(cpu))


def main():
    bench = sys.argv[1] if len(sys.argv) > 1 else "build/release/bin/bench_apply"
    steps = np.linspace(0, 1, 33)
    cube = "LUT_3D_SIZE 33\n" + "\n".join(
        f"{r * 0.9 + 0.05:.6f} {g ** 1.2:.6f} {b ** 0.8:.6f}"
        for b in steps for g in steps for r in steps) + "\n"
    lut = crandle.LUT.from_bytes(cube.encode())
    for channels in (4, 3):
        # A smooth picture, as frames are: neighbouring pixels read neighbouring cells.
        y, x = np.mgrid[0:2160, 0:3840].astype(np.float32)
        planes = [x / 3840, y / 2160, (x + y) / 6000, np.ones_like(x)][:channels]
        image = np.ascontiguousarray(np.stack(planes, -1) * 0.98, dtype=np.float32)
        out = np.empty_like(image)
        best, median, cpu = best_ms(lambda: lut.apply(image, out=out))
        print(f"lut.apply 3840x2160x{channels} float32 (out given): best {best:.1f} ms, "
              f"median {median:.1f} ms, thread CPU median {cpu:.1f} ms")
    result = subprocess.run([bench, "--benchmark_filter=BM_ApplyCPU/3D33/",
                             "--benchmark_repetitions=3", "--benchmark_report_aggregates_only"],
                            capture_output=True, text=True, check=True)
    print("\n".join(line for line in result.stdout.splitlines() if "BM_" in line))


if __name__ == "__main__":
    main()
