"""crandle.apply_file and LUT.apply against the crandle tool on the same images."""

from __future__ import annotations

import numpy as np
import pytest

import crandle
from conftest import SAMPLES, read_png, write_png

WARM = SAMPLES / "warm-contrast.cube"


@pytest.mark.parametrize("options, flags", [
    ({}, []),
    ({"depth": "8"}, ["--depth", "8"]),
    ({"threads": 3}, ["--threads", "3"]),
])
def test_apply_file_writes_what_the_tool_writes(tmp_path, tool, options, flags):
    tool("apply", WARM, SAMPLES / "chart.png", tmp_path / "tool.png", *flags)
    crandle.apply_file(crandle.LUT.open(WARM), SAMPLES / "chart.png", tmp_path / "module.png",
                       **options)
    assert (tmp_path / "module.png").read_bytes() == (tmp_path / "tool.png").read_bytes()
    # A path works as well as a LUT.
    crandle.apply_file(str(WARM), SAMPLES / "chart.png", tmp_path / "by-path.png", **options)
    assert (tmp_path / "by-path.png").read_bytes() == (tmp_path / "tool.png").read_bytes()


@pytest.mark.parametrize("dtype, channels", [(np.uint16, 3), (np.uint8, 4), (np.uint16, 4)])
def test_apply_on_arrays_equals_the_tool_on_files(tmp_path, tool, dtype, channels):
    rng = np.random.default_rng(11)
    full = np.iinfo(dtype).max
    # With partial alpha too: a PNG stores its colour unassociated, and the tool grades it as
    # stored, as arrays are taken as they are.
    image = rng.integers(0, full + 1, (23, 37, channels)).astype(dtype)
    write_png(tmp_path / "in.png", image)
    np.testing.assert_array_equal(read_png(tmp_path / "in.png"), image)
    tool("apply", WARM, tmp_path / "in.png", tmp_path / "out.png")
    from_tool = read_png(tmp_path / "out.png")
    np.testing.assert_array_equal(crandle.LUT.open(WARM).apply(image), from_tool)


def test_apply_file_failures(tmp_path):
    (tmp_path / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n not really")
    with pytest.raises(OSError, match="cannot read"):
        crandle.apply_file(WARM, tmp_path / "missing.png", tmp_path / "out.png")
    with pytest.raises(OSError, match="cannot read"):
        crandle.apply_file(WARM, tmp_path / "broken.png", tmp_path / "out.png")
    with pytest.raises(crandle.LUTError, match="no such file"):
        crandle.apply_file(tmp_path / "none.cube", SAMPLES / "chart.png", tmp_path / "out.png")
    with pytest.raises(OSError, match="cannot write"):
        crandle.apply_file(WARM, SAMPLES / "chart.png", tmp_path / "no-dir" / "out.png")
    with pytest.raises(ValueError):
        crandle.apply_file(WARM, SAMPLES / "chart.png", tmp_path / "out.png", depth="12")
    # Nothing half-written is left behind.
    assert sorted(p.name for p in tmp_path.iterdir()) == ["broken.png"]
