"""crandle.distributed on a LocalCluster of two worker processes on loopback."""

from __future__ import annotations

import os
import signal
import threading
import time

import numpy as np
import pytest

from conftest import SAMPLES, write_png

distributed = pytest.importorskip("dask.distributed")
from crandle.distributed import apply_sequence, frame_range, main  # noqa: E402

WARM = SAMPLES / "warm-contrast.cube"


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       host="127.0.0.1", dashboard_address=None,
                                       worker_dashboard_address=None)
    client = distributed.Client(cluster, timeout=60)
    client.wait_for_workers(2, timeout=60)
    yield client
    client.close()
    cluster.close()


def make_frames(directory, count, height, width):
    rng = np.random.default_rng(5)
    directory.mkdir(exist_ok=True)
    for n in range(1, count + 1):
        write_png(directory / f"in.{n:04d}.png",
                  rng.integers(0, 65536, (height, width, 3)).astype(np.uint16))
    return str(directory / "in.%04d.png")


def tool_frames(tool, pattern, directory, count):
    tool("apply", WARM, pattern, directory / "tool.%04d.png", "--frames", f"1-{count}")
    return {n: (directory / f"tool.{n:04d}.png").read_bytes() for n in range(1, count + 1)}


def test_a_sequence_gives_the_tools_bytes(tmp_path, client, tool):
    pattern = make_frames(tmp_path / "in", 24, 24, 32)
    want = tool_frames(tool, pattern, tmp_path, 24)
    out = str(tmp_path / "out.%04d.png")
    report = apply_sequence(WARM, pattern, out, range(1, 25), client, timeout=120)
    assert report.failed == {} and report.frames_done == 24 and report.workers == 2
    assert report.done == [out % n for n in range(1, 25)]
    assert report.seconds_per_frame > 0
    for n in range(1, 25):
        assert (tmp_path / f"out.{n:04d}.png").read_bytes() == want[n], n
    # Chunks of frames per task give the same files.
    report = apply_sequence(WARM, pattern, str(tmp_path / "chunked.%04d.png"), "1-24", client,
                            chunk=5, timeout=120)
    assert report.frames_done == 24
    for n in range(1, 25):
        assert (tmp_path / f"chunked.{n:04d}.png").read_bytes() == want[n], n


def test_a_corrupt_frame_is_reported_and_the_others_go_on(tmp_path, client):
    pattern = make_frames(tmp_path / "in", 6, 8, 8)
    (tmp_path / "in" / "in.0004.png").write_bytes(b"\x89PNG\r\n\x1a\n damaged")
    os.remove(tmp_path / "in" / "in.0006.png")
    out = str(tmp_path / "out.%04d.png")
    report = apply_sequence(WARM, pattern, out, range(1, 7), client, chunk=2, timeout=120)
    assert sorted(report.failed) == [pattern % 4, pattern % 6]
    assert "cannot read" in report.failed[pattern % 4]
    assert report.done == [out % n for n in (1, 2, 3, 5)]
    assert sorted(p.name for p in tmp_path.glob("out.*")) == [
        f"out.{n:04d}.png" for n in (1, 2, 3, 5)]
    # A LUT that cannot be read fails every frame, by name.
    report = apply_sequence(tmp_path / "none.cube", pattern, out, range(1, 3), client,
                            timeout=60)
    assert report.frames_done == 0 and "none.cube" in report.failed[pattern % 1]


def test_a_worker_killed_mid_run_is_replaced_and_every_frame_is_written_once(
        tmp_path, client, tool):
    # Frames large enough (a 16-bit PNG each to write) that the run lasts a few seconds.
    count = 24
    pattern = make_frames(tmp_path / "in", count, 384, 512)
    want = tool_frames(tool, pattern, tmp_path, count)
    out = tmp_path / "out"
    out.mkdir()
    pids_before = set(client.run(os.getpid).values())
    killed = {}

    def kill_when_started():
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and len(list(out.glob("out.*.png"))) < 3:
            time.sleep(0.005)
        running = client.run(os.getpid)
        address, pid = sorted(running.items())[0]
        killed["done_at_kill"] = len(list(out.glob("out.*.png")))
        killed["pid"] = pid
        os.kill(pid, signal.SIGKILL)

    killer = threading.Thread(target=kill_when_started)
    killer.start()
    report = apply_sequence(WARM, pattern, str(out / "out.%04d.png"), range(1, count + 1),
                            client, timeout=180)
    killer.join()
    assert killed["done_at_kill"] < count, "the run ended before a worker could be killed"
    print(f"worker {killed['pid']} killed with {killed['done_at_kill']} of {count} frames written")
    assert report.failed == {}
    assert report.done == [str(out / f"out.{n:04d}.png") for n in range(1, count + 1)]
    # Every frame once, whole, with the tool's bytes; nothing partial left beside them.
    assert sorted(os.listdir(out)) == [f"out.{n:04d}.png" for n in range(1, count + 1)]
    for n in range(1, count + 1):
        assert (out / f"out.{n:04d}.png").read_bytes() == want[n], n
    # The nanny brought up a new worker process in place of the killed one.
    client.wait_for_workers(2, timeout=60)
    pids_after = set(client.run(os.getpid).values())
    assert killed["pid"] in pids_before and killed["pid"] not in pids_after
    assert len(pids_after) == 2


def test_the_command_line(tmp_path, client, capsys):
    pattern = make_frames(tmp_path / "in", 3, 8, 8)
    address = client.scheduler.address
    assert address.startswith("tcp://127.0.0.1:")
    status = main([str(WARM), pattern, str(tmp_path / "out.%04d.png"), "--frames", "1-3",
                   "--scheduler", address])
    assert status == 0
    assert "3 frames done, 0 failed" in capsys.readouterr().out
    assert main([str(WARM), pattern, str(tmp_path / "o.%04d.png"), "--frames", "2-4",
                 "--scheduler", address]) == 1


@pytest.mark.parametrize("text, frames", [("1001-1003", [1001, 1002, 1003]), ("7", [7])])
def test_frame_ranges(text, frames):
    assert list(frame_range(text)) == frames


def test_bad_patterns_and_ranges_raise():
    with pytest.raises(ValueError):
        frame_range("9-3")
    with pytest.raises(ValueError):
        apply_sequence(WARM, "no-field.png", "out.%04d.png", [1], client=object())
