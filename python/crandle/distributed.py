"""Image sequences spread over a Dask cluster.

    from crandle.distributed import apply_sequence
    report = apply_sequence("grade.cube", "plates/shot.%04d.exr", "graded/shot.%04d.exr",
                            range(1001, 1049), client=Client("tcp://scheduler:8786"))
    print(report)

Each task applies the LUT to one frame (or a chunk of frames) with crandle.apply_file, so every
output is what `crandle apply` writes for that frame, written under a temporary name and renamed
when whole. A worker parses the LUT once and keeps it for the tasks that follow. A frame that
fails is reported by name and the others go on; a worker that dies has its frames run again
elsewhere, and frames it had already finished in this run are not written twice.

From a shell, the same as `crandle apply LUT IN OUT --frames A-B` spread over a cluster:

    python -m crandle.distributed LUT IN OUT --frames A-B [--scheduler ADDRESS] [--workers N]
"""

from __future__ import annotations

import argparse
import glob
import os
import sys
import threading
import time
from dataclasses import dataclass, field
from typing import Dict, Iterable, List, Optional, Sequence, Tuple, Union

import crandle

__all__ = ["SequenceReport", "apply_sequence", "frame_range", "main"]


@dataclass
class SequenceReport:
    """What a sequence run did.

    done: the output paths written (or found written earlier in this same run), in frame order.
    failed: input path -> why its frame failed.
    wall_seconds: from the first task submitted to the last one finished.
    seconds_per_frame: wall_seconds over the frames done (the cluster's throughput).
    apply_seconds: seconds the workers spent on each frame done, summed.
    workers: workers in the cluster when the run began.
    """

    done: List[str] = field(default_factory=list)
    failed: Dict[str, str] = field(default_factory=dict)
    wall_seconds: float = 0.0
    apply_seconds: float = 0.0
    workers: int = 0

    @property
    def frames_done(self) -> int:
        return len(self.done)

    @property
    def seconds_per_frame(self) -> float:
        return self.wall_seconds / self.frames_done if self.done else float("nan")

    def __str__(self) -> str:
        lines = [f"{self.frames_done} frames done, {len(self.failed)} failed, "
                 f"{self.seconds_per_frame:.3f} s per frame on {self.workers} worker(s) "
                 f"({self.wall_seconds:.1f} s in all)"]
        lines += [f"  failed: {name}: {why}" for name, why in sorted(self.failed.items())]
        return "\n".join(lines)


def frame_range(text: str) -> range:
    """'1001-1048' -> range(1001, 1049); '7' -> range(7, 8)."""
    first, _, last = text.partition("-")
    first_frame = int(first)
    last_frame = int(last) if last else first_frame
    if last_frame < first_frame:
        raise ValueError(f"frame range {text!r} ends before it begins")
    return range(first_frame, last_frame + 1)


# Per worker process: LUTs by path, with the file's size and modification time, so that a LUT
# replaced on disk between runs is read again.
_LUTS: Dict[Tuple[str, int, int], crandle.LUT] = {}
_LUTS_LOCK = threading.Lock()


def _worker_lut(path: str) -> crandle.LUT:
    status = os.stat(path)
    key = (os.path.abspath(path), status.st_size, status.st_mtime_ns)
    with _LUTS_LOCK:
        lut = _LUTS.get(key)
        if lut is None:
            lut = _LUTS[key] = crandle.LUT.open(path)
        return lut


def _remove_partials(output: str) -> None:
    # What a writer killed half-way leaves: ".<name>.partial-<pid><extension>" beside the output.
    directory, name = os.path.split(output)
    for partial in glob.glob(os.path.join(glob.escape(directory or "."),
                                          f".{glob.escape(name)}.partial-*")):
        try:
            os.remove(partial)
        except OSError:
            pass


def _apply_frames(lut_path: str, pairs: Sequence[Tuple[str, str]], started_ns: int,
                  threads: int, depth: Optional[str]):
    """One task: [(input, output, error or None, seconds)] for each frame of the chunk."""
    results = []
    try:
        lut = _worker_lut(lut_path)
    except (OSError, crandle.LUTError) as error:
        return [(source, target, f"LUT {lut_path}: {error}", 0.0) for source, target in pairs]
    for source, target in pairs:
        begin = time.perf_counter()
        try:
            # Written in this run already, by a worker that died before it could say so.
            if os.stat(target).st_mtime_ns >= started_ns:
                results.append((source, target, None, 0.0))
                continue
        except OSError:
            pass
        try:
            crandle.apply_file(lut, source, target, threads=threads, depth=depth)
            results.append((source, target, None, time.perf_counter() - begin))
        except Exception as error:  # noqa: BLE001 - every failure is reported by frame
            results.append((source, target, f"{type(error).__name__}: {error}", 0.0))
    return results


class _ProgressBar:
    def __init__(self, total: int, stream=sys.stderr) -> None:
        self.total, self.count, self.stream = total, 0, stream
        self.start = time.perf_counter()

    def step(self, frames: int) -> None:
        self.count += frames
        width = 40
        filled = width * self.count // max(self.total, 1)
        elapsed = time.perf_counter() - self.start
        self.stream.write(f"\rapplying [{'#' * filled}{'.' * (width - filled)}] "
                          f"{self.count}/{self.total} frames, {elapsed:.1f} s")
        if self.count >= self.total:
            self.stream.write("\n")
        self.stream.flush()


def apply_sequence(lut_path: Union[str, os.PathLike],
                   in_pattern: str,
                   out_pattern: str,
                   frames: Union[Iterable[int], str],
                   client=None,
                   *,
                   chunk: int = 1,
                   threads: int = 1,
                   depth: Optional[str] = None,
                   progress: Optional[bool] = None,
                   workers: Optional[int] = None,
                   timeout: Optional[float] = None) -> SequenceReport:
    """Applies the LUT at `lut_path` to every frame of a sequence on a Dask cluster.

    in_pattern, out_pattern: paths with a printf field for the frame number, such as
        "shot.%04d.exr" (as `crandle apply` takes them).
    frames: frame numbers, or a range as text ("1001-1048").
    client: a dask.distributed Client. Without one, a LocalCluster of `workers` processes
        (default: one per core) starts on this machine for the run, listening on 127.0.0.1 only.
    chunk: frames per task; more than one saves scheduling on very short frames.
    threads, depth: as crandle.apply_file's (strips at once within a frame; output samples).
    progress: a progress bar on standard error (default: when it is a terminal).
    timeout: seconds to wait for the whole run; frames not finished by then are reported failed.

    The LUT path must be readable by every worker (a shared file system), as must the inputs;
    the outputs are written by the workers. Returns a SequenceReport; raises only for a bad
    pattern or frame range (failed frames are in the report).
    """
    from dask.distributed import Client, LocalCluster, as_completed
    from dask.distributed import TimeoutError as DaskTimeout

    numbers = list(frame_range(frames) if isinstance(frames, str) else frames)
    if "%" not in in_pattern or "%" not in out_pattern:
        raise ValueError("in_pattern and out_pattern need a frame-number field such as %04d")
    pairs = [(in_pattern % n, out_pattern % n) for n in numbers]
    chunk = max(1, int(chunk))
    lut_path = os.fspath(lut_path)

    own_cluster = None
    if client is None:
        own_cluster = LocalCluster(n_workers=workers or os.cpu_count() or 1, threads_per_worker=1,
                                   processes=True, host="127.0.0.1", dashboard_address=None)
        client = Client(own_cluster)
    try:
        report = SequenceReport(workers=len(client.scheduler_info()["workers"]))
        if progress is None:
            progress = sys.stderr.isatty()
        bar = _ProgressBar(len(pairs)) if progress else None
        if bar and getattr(client, "dashboard_link", None):
            sys.stderr.write(f"dashboard: {client.dashboard_link}\n")
        started_ns = time.time_ns()
        begin = time.perf_counter()
        futures = {}
        for first in range(0, len(pairs), chunk):
            part = pairs[first:first + chunk]
            future = client.submit(_apply_frames, lut_path, part, started_ns, threads, depth,
                                   pure=False, key=f"crandle-apply-{started_ns}-{first}")
            futures[future] = part
        outcome: Dict[str, Tuple[Optional[str], float]] = {}
        try:
            for future in as_completed(futures, timeout=timeout):
                part = futures[future]
                try:
                    for source, target, error, seconds in future.result():
                        outcome[source] = (error, seconds)
                except Exception as error:  # noqa: BLE001 - the task itself failed
                    for source, _ in part:
                        outcome[source] = (f"{type(error).__name__}: {error}", 0.0)
                if bar:
                    bar.step(len(part))
        except DaskTimeout:
            client.cancel(list(futures))
        report.wall_seconds = time.perf_counter() - begin
        for source, target in pairs:
            error, seconds = outcome.get(source, ("not finished before the timeout", 0.0))
            if error is None:
                report.done.append(target)
                report.apply_seconds += seconds
            else:
                report.failed[source] = error
            _remove_partials(target)
        return report
    finally:
        if own_cluster is not None:
            client.close()
            own_cluster.close()


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python -m crandle.distributed",
        description="crandle apply LUT IN OUT --frames A-B, spread over a Dask cluster")
    parser.add_argument("lut", help="LUT file (readable by every worker)")
    parser.add_argument("input", help="input pattern, such as plates/shot.%%04d.exr")
    parser.add_argument("output", help="output pattern, such as graded/shot.%%04d.exr")
    parser.add_argument("--frames", required=True, help="frame range A-B")
    parser.add_argument("--scheduler", help="address of a running Dask scheduler "
                        "(tcp://host:8786); default: a cluster on this machine")
    parser.add_argument("--workers", type=int, help="workers of the local cluster")
    parser.add_argument("--chunk", type=int, default=1, help="frames per task")
    parser.add_argument("--threads", type=int, default=1, help="strips at once within a frame")
    parser.add_argument("--depth", choices=["8", "16", "half", "float"])
    options = parser.parse_args(argv)

    client = None
    if options.scheduler:
        from dask.distributed import Client
        client = Client(options.scheduler)
    try:
        report = apply_sequence(options.lut, options.input, options.output, options.frames,
                                client, chunk=options.chunk, threads=options.threads,
                                depth=options.depth, workers=options.workers)
    finally:
        if client is not None:
            client.close()
    print(report)
    return 1 if report.failed else 0


if __name__ == "__main__":
    sys.exit(main())
