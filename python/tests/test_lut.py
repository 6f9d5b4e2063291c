"""crandle.LUT: reading, what a LUT tells about itself, errors, eval."""

from __future__ import annotations

import pickle
import struct

import numpy as np
import pytest

import crandle
from conftest import AFFINE_CUBE, SAMPLES, affine, cube_text


def test_properties_of_a_file_and_of_bytes(affine_lut_path):
    from_file = crandle.LUT.open(affine_lut_path)
    from_bytes = crandle.LUT.from_bytes(AFFINE_CUBE)
    titled = crandle.LUT.from_bytes(cube_text(2, affine, title="Night Grade"))
    assert from_file.display_name == "affine"
    assert from_bytes.display_name == "Embedded LUT"
    assert titled.display_name == "Night Grade"
    for lut in (from_file, from_bytes, titled):
        assert len(lut.identifier) == 32 and lut.identifier == lut.identifier.upper()
        int(lut.identifier, 16)
    # The file title and the title are part of the identifier; the directory is not.
    assert len({from_file.identifier, from_bytes.identifier, titled.identifier}) == 3
    assert crandle.LUT.open(str(affine_lut_path)).identifier == from_file.identifier
    assert (from_file.kind, from_file.size) == ("3D", 2)
    assert [list(v) for v in from_file.domain] == [[0, 0, 0], [1, 1, 1]]


def test_blob_is_the_otx3_image_of_the_table():
    blob = crandle.LUT.from_bytes(AFFINE_CUBE).blob
    assert len(blob) == 40 + 12 * 8
    magic, size, kind, enciphered = struct.unpack("<4sIII", blob[:16])
    assert (magic, size, kind, enciphered) == (b"OTX3", 2, 3, 0)
    assert struct.unpack("<6f", blob[16:40]) == (0, 0, 0, 1, 1, 1)
    entries = np.frombuffer(blob, "<f4", offset=40).reshape(8, 3)
    grid = np.array([[r, g, b] for b in (0, 1) for g in (0, 1) for r in (0, 1)], float)
    np.testing.assert_allclose(entries, affine(grid), atol=1e-7)


def test_a_1d_table_with_a_domain():
    text = b"LUT_1D_SIZE 3\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 2 4 8\n0 0 0\n0.5 0.5 0.5\n1 1 1\n"
    lut = crandle.LUT.from_bytes(text)
    # Short 1-D tables are widened when read, keeping their curve.
    assert lut.kind == "1D" and lut.size >= 3
    assert [list(v) for v in lut.domain] == [[0, 0, 0], [2, 4, 8]]
    assert len(lut.blob) == 40 + 12 * lut.size
    # Halfway through each channel's domain is the middle entry.
    np.testing.assert_allclose(lut.eval((1.0, 2.0, 4.0)), (0.5, 0.5, 0.5), atol=1e-6)


@pytest.mark.parametrize("make, code, reason", [
    (lambda tmp: crandle.LUT.open(tmp / "missing.cube"), 0xA00F0001, "no such file"),
    (lambda tmp: crandle.LUT.open(tmp), 0xA00F0001, "it is a directory"),
    (lambda tmp: crandle.LUT.open(tmp / "junk.cube"), 0xA00F0001, "not a LUT"),
    (lambda tmp: crandle.LUT.open(""), 0xA00F000E, "the path is empty"),
    (lambda tmp: crandle.LUT.from_bytes(b""), 0xA00F000E, "no bytes"),
    (lambda tmp: crandle.LUT.from_bytes(b"LUT_3D_SIZE 2\n0 0 0\n"), 0xA00F0001, "no LUT"),
])
def test_failures_raise_lut_error_with_code_and_reason(tmp_path, make, code, reason):
    (tmp_path / "junk.cube").write_bytes(b"LUT_3D_SIZE 3\n1 2\n")
    with pytest.raises(crandle.LUTError) as caught:
        make(tmp_path)
    assert caught.value.code == code
    assert reason in caught.value.reason
    assert f"0x{code:08x}" in str(caught.value)
    # Errors cross process boundaries (Dask) whole.
    again = pickle.loads(pickle.dumps(caught.value))
    assert (again.code, again.reason, again.source) == (
        caught.value.code, caught.value.reason, caught.value.source)


def test_eval_single_colours_and_arrays():
    lut = crandle.LUT.from_bytes(AFFINE_CUBE)
    colours = np.random.default_rng(3).uniform(0, 0.98, (1000, 3))
    single = lut.eval(tuple(colours[0]))
    assert isinstance(single, tuple) and len(single) == 3
    np.testing.assert_allclose(single, affine(colours[0]), atol=1e-6)
    many = lut.eval(colours)  # float64 in: converted
    assert many.dtype == np.float32 and many.shape == (1000, 3)
    np.testing.assert_allclose(many, affine(colours), atol=1e-6)
    np.testing.assert_allclose(lut.eval(colours.tolist()), many)
    assert lut.eval(np.zeros((0, 3), np.float32)).shape == (0, 3)
    # More colours than one call takes.
    wide = np.tile(colours.astype(np.float32), (70, 1))
    np.testing.assert_allclose(lut.eval(wide)[-1000:], many)
    with pytest.raises(ValueError):
        lut.eval(np.zeros((4, 2), np.float32))


def test_the_samples_open():
    names = sorted(p.stem for p in SAMPLES.glob("*.cube"))
    assert names
    for name in names:
        lut = crandle.LUT.open(SAMPLES / f"{name}.cube")
        assert lut.display_name == name and lut.size > 1
        assert repr(lut).startswith(f"<crandle.LUT '{name}'")
